package offline;

import static com.vandrik.Natives.*;
import static offline.Expect.*;

import java.util.ArrayDeque;
import java.util.ArrayList;
import java.util.Arrays;
import java.util.List;
import java.util.Random;

final class AnalysisCases {
    private AnalysisCases() {
    }

    /** A graph with its answers by the definitions. */
    private static final class Graph {
        final int count;
        final List<List<Integer>> references = new ArrayList<>();
        int[] roots;

        Graph(int count) {
            this.count = count;
            for (int i = 0; i < count; i++) {
                references.add(new ArrayList<>());
            }
        }

        static int sizeOf(int row) {
            return 16 + row % 7 * 8;
        }

        long toStorage() {
            long storage = osNcreate(count, (byte) 1, "/tmp/");
            for (int row = 1; row < count; row++) {
                List<Integer> list = references.get(row);
                osNcreateClassImpl(storage, row, 0, sizeOf(row), list.size());
                for (int i = 0; i < list.size(); i++) {
                    osNsetRefImpl(storage, row, list.get(i), i);
                }
            }
            return storage;
        }

        boolean[] reachedWithout(boolean[] without) {
            boolean[] reached = new boolean[count];
            ArrayDeque<Integer> open = new ArrayDeque<>();
            for (int root : roots) {
                open.push(root);
            }
            while (!open.isEmpty()) {
                int row = open.pop();
                if (row != 0 && !reached[row] && !without[row]) {
                    reached[row] = true;
                    references.get(row).forEach(open::push);
                }
            }
            return reached;
        }

        boolean[] reachedWithout(int row) {
            boolean[] without = new boolean[count];
            without[row] = true;
            return reachedWithout(without);
        }

        int words() {
            return (count - 1) / 32 + 1;
        }
    }

    private static Graph randomGraph(int seed) {
        Random random = new Random(seed);
        Graph graph = new Graph(2 + random.nextInt(14));
        for (int i = random.nextInt(graph.count * 3); i >= 0; i--) {
            graph.references.get(1 + random.nextInt(graph.count - 1))
                    .add(random.nextInt(graph.count));
        }
        graph.roots = new int[1 + random.nextInt(3)];
        for (int i = 0; i < graph.roots.length; i++) {
            graph.roots[i] = 1 + random.nextInt(graph.count - 1);
        }
        return graph;
    }

    private static int[] bits(boolean[] marks) {
        int[] bits = new int[(marks.length - 1) / 32 + 1];
        for (int i = 0; i < marks.length; i++) {
            bits[i / 32] |= marks[i] ? 1 << i % 32 : 0;
        }
        return bits;
    }

    public static void dominatorsAndRetainedSizesEqualTheDefinition() {
        for (int seed = 1; seed <= 500; seed++) {
            Graph graph = randomGraph(seed);
            long storage = graph.toStorage();
            boolean[] reached = graph.reachedWithout(0);
            int[] marks = new int[graph.words()];
            f(storage, graph.roots, marks);
            check(Arrays.equals(bits(reached), marks), "reached, seed " + seed);
            int[] counts = new int[graph.count];
            same(1, osNcomputeBRTImpl(storage, marks, counts), "referrers");
            check(Arrays.equals(new int[graph.count], counts), "counts, seed " + seed);
            same(1, osNcomputeDominatorsAndRetainedSizesImpl(storage, graph.roots, marks),
                 "dominators");
            boolean[][] still = new boolean[graph.count][];
            for (int row = 1; row < graph.count; row++) {
                still[row] = graph.reachedWithout(row);
            }
            for (int row = 1; row < graph.count; row++) {
                checkRow(graph, storage, reached, still, row, "seed " + seed + " row " + row);
            }
            osNdelete(storage);
        }
    }

    private static void checkRow(Graph graph, long storage, boolean[] reached, boolean[][] still,
                                 int row, String where) {
        long retained = reached[row] ? 0 : Graph.sizeOf(row);
        for (int other = 1; other < graph.count; other++) {
            retained +=
                    reached[row] && reached[other] && !still[row][other] ? Graph.sizeOf(other) : 0;
        }
        same(retained, osNgetRetainedSizeImpl(storage, row), where);
        int dominator = osNgetDominatorImpl(storage, row);
        for (int other = 1; other < graph.count; other++) {
            if (other == row || !reached[row] || !reached[other]) {
                continue;
            }
            boolean dominates = !still[other][row];
            boolean aboveDominator =
                    dominator != 0 && (other == dominator || !still[other][dominator]);
            check(dominates == aboveDominator,
                  where + " dominator " + dominator + " other " + other);
        }
        check(reached[row] || dominator == 0, where);
    }

    public static void whatAGroupRetainsEqualsTheDefinition() {
        for (int seed = 1; seed <= 500; seed++) {
            Graph graph = randomGraph(seed);
            long storage = graph.toStorage();
            boolean[] reached = graph.reachedWithout(0);
            Random random = new Random(seed);
            boolean[] group = new boolean[graph.count];
            int[] list = new int[4];
            for (int i = 1; i < 3; i++) {
                list[i] = 1 + random.nextInt(graph.count - 1);
                group[list[i]] = true;
            }
            boolean[] still = graph.reachedWithout(group);
            long sum = 0;
            for (int row = 1; row < graph.count; row++) {
                sum += reached[row] && !still[row] && !group[row] ? Graph.sizeOf(row) : 0;
            }
            int[] byList = new int[graph.words()];
            int[] byMarks = new int[graph.words()];
            same(1, f0(storage, null, list, 1, 3, graph.roots, bits(reached), byList), "by list");
            same(1, f0(storage, bits(group), null, -9, 9, graph.roots, bits(reached), byMarks),
                 "by marks");
            check(Arrays.equals(byList, byMarks), "two ways, seed " + seed);
            int[] retained = byList.clone();
            for (int i = 0; i < retained.length; i++) {
                retained[i] = ~retained[i];
            }
            same(sum, s1(storage, retained), "sum, seed " + seed);
            osNdelete(storage);
        }
    }

    public static void sumsOfNothingAreZero() {
        long storage = osNcreate(1, (byte) 0, "");
        same(0, s1(storage, new int[] {-1}), "no rows");
        osNdelete(storage);
        long other = osNcreate(40, (byte) 0, "");
        same(0, s1(other, new int[2]), "no bits");
        osNdelete(other);
    }

    public static void objectZeroIsRefused() {
        long storage = osNcreate(4, (byte) 0, "");
        String text = thrownBy(() -> f(storage, new int[] {1, 0}, new int[1]));
        check("object != 0 (0, 0)".equals(text), text);
        throwsInternal(() -> f(storage, new int[] {4}, new int[1]));
        throwsInternal(() -> f(storage, new int[] {-1}, new int[1]));
        throwsInternal(() -> f(storage, new int[] {1}, new int[0]));
        osNdelete(storage);
    }

    public static void computationsNeedWhatComesBeforeThem() {
        long bare = osNcreate(4, (byte) 0, "");
        int[] bits = {14};
        same(1, osNcomputeBRTImpl(bare, bits, new int[4]), "referrers");
        throwsInternal(() -> osNcomputeBRTImpl(bare, bits, new int[4]));
        throwsInternal(() -> osNcomputeDominatorsAndRetainedSizesImpl(bare, new int[] {1}, bits));
        osNdelete(bare);
        long storage = osNcreate(4, (byte) 1, "");
        throwsInternal(
                () -> osNcomputeDominatorsAndRetainedSizesImpl(storage, new int[] {1}, bits));
        same(1, osNcomputeBRTImpl(storage, bits, new int[4]), "referrers");
        throwsInternal(
                () -> osNcomputeDominatorsAndRetainedSizesImpl(storage, new int[] {4}, bits));
        osNdelete(storage);
        long again = osNcreate(4, (byte) 1, "");
        same(1, osNcomputeBRTImpl(again, bits, new int[4]), "referrers");
        same(1, osNcomputeDominatorsAndRetainedSizesImpl(again, new int[] {1}, bits), "dominators");
        throwsInternal(() -> osNcomputeDominatorsAndRetainedSizesImpl(again, new int[] {1}, bits));
        osNdelete(again);
    }

    /** The digest of dominators and sizes that the engine gave when it was proved right. */
    public static void aLargeGraphGivesTheDigestOfTheEngine() {
        int count = 300001;
        long storage = osNcreate(count, (byte) 1, "");
        int state = 12345;
        for (int row = 1; row < count; row++) {
            osNcreateClassImpl(storage, row, 0, 16 + row % 7 * 8, 3);
            for (int i = 0; i < 3; i++) {
                state = state * 1664525 + 1013904223;
                int reach = (state >>> 8) % (i == 0 ? 3 : 50);
                osNsetRefImpl(storage, row, (row + reach) % count, i);
            }
        }
        int[] roots = {1, 7, 1000, 150000};
        int[] bits = new int[(count - 1) / 32 + 1];
        f(storage, roots, bits);
        same(1, osNcomputeBRTImpl(storage, bits, new int[count]), "referrers");
        same(1, osNcomputeDominatorsAndRetainedSizesImpl(storage, roots, bits), "dominators");
        long digest = 0;
        for (int row = 1; row < count; row++) {
            digest = digest * 31 + osNgetDominatorImpl(storage, row);
            digest = digest * 31 + osNgetRetainedSizeImpl(storage, row);
        }
        same(DIGEST, digest, "digest");
        osNdelete(storage);
    }

    private static final long DIGEST = 5279833249018406090L;
}
