package cases;

import fixtures.Throws;
import java.util.ArrayList;
import java.util.List;
import java.util.Map;
import java.util.TreeMap;
import jvmtest.Case;
import jvmtest.Check;
import jvmtest.Tables;
import jvmtest.Target;
import jvmtest.Tool;
import jvmtest.Tracing;

/**
 * Calls that exceptions end, with and without the JVM's exception events: where the calls behind a
 * catch stand in the tree, and who has the time.
 */
public final class ThrowCases {
    private static final String CLASS = "fixtures.Throws.";
    private static final String FILTERS =
            "java.*\njdk.*\nsun.*\nfixtures.ThrowHost\nfixtures.Throws$*";

    /** Deeper than any stack here but overflown ones. */
    private static final int DEEP = 300;

    private ThrowCases() {
    }

    private static void run(Target target, String line) throws Exception {
        int number = target.output().split("done ", -1).length;
        target.ask(line, "done " + number + " " + line.split(" ")[0]);
    }

    /** Calls by the method's path through the fixture, where it is not too deep. */
    private static Map<String, Long> countsByPath(Tables tables) {
        Map<String, Long> counts = new TreeMap<>();
        for (Map.Entry<Integer, Object[]> entry : tables.rows.get(Tables.CPU).entrySet()) {
            Object[] pair = tables.rows.get(Tables.THREADFRAME).get(entry.getKey());
            int frame = pair == null ? 0 : (Integer) pair[2];
            if (frame <= 0 || (Long) entry.getValue()[2] == 0 || depth(tables, frame) > DEEP) {
                continue;
            }
            if (!tables.frameMethod(frame).startsWith(CLASS)) {
                continue;
            }
            List<String> path = new ArrayList<>();
            for (String method : tables.stack(frame)) {
                if (method.startsWith(CLASS) && !method.contains("lambda$")) {
                    path.add(method.substring(CLASS.length()));
                }
            }
            counts.merge(String.join(" ", path), (Long) entry.getValue()[2], Long::sum);
        }
        return counts;
    }

    private static int depth(Tables tables, int frame) {
        int depth = 0;
        for (int f = frame; f > 0 && depth <= DEEP; f = tables.parent(f)) {
            depth++;
        }
        return depth;
    }

    private static int deepest(Tables tables) {
        int deepest = 0;
        for (int frame : tables.rows.get(Tables.FRAME).keySet()) {
            deepest = Math.max(deepest, depth(tables, frame));
        }
        return deepest;
    }

    /** Paths are exact, so their counts are; the tree does not grow with the number of throws. */
    private static void checkTree(Target target, int times) throws Exception {
        Tracing.start(target, FILTERS);
        run(target, "catching 1000 0");
        int frames = Tracing.fetch(target).rows.get(Tables.FRAME).size();
        run(target, "catching " + times + " 0");
        run(target, "through 1000 0");
        run(target, "recursive 300 0");
        run(target, "unwinding 100 0");
        Tables tables = Tracing.fetch(target);
        Map<String, Long> counts = countsByPath(tables);
        Check.equal(counts.get("obey catching leaf"), times + 1000L, "behind the catch " + counts);
        Check.equal(counts.get("obey catching thrower thrower thrower thrower"), times + 1000L,
                    "the thrower " + counts);
        Check.equal(counts.get("obey through leaf"), 1000L, "behind monitor and finally " + counts);
        Check.equal(counts.get("obey"
                               + " recursive".repeat(11) + " leaf"),
                    300L, "the activation that catches " + counts);
        for (int level = 1; level <= 31; level++) {
            Check.equal(counts.get("obey"
                                   + " unwinding".repeat(level) + " leaf"),
                        100L, "finally at level " + level + " " + counts);
        }
        Check.isTrue(tables.rows.get(Tables.FRAME).size() < frames + 400,
                     "frames: " + tables.rows.get(Tables.FRAME).size() + " after " + frames);
        Check.isTrue(deepest(tables) < 100, "depth " + deepest(tables));
        tables.checkTimes();
        Tracing.stop(target);
    }

    /** The catching method has what it spends behind the catch, not the one that threw. */
    private static void checkTimes(Target target, String catching) throws Exception {
        Tracing.clear(target);
        Tracing.start(target, FILTERS);
        run(target, catching + " 300 400000");
        Map<String, Long> own = Tracing.fetch(target).ownTimes();
        double mine = own.get(CLASS + catching);
        double others = own.get(CLASS + "thrower");
        // A throw is dear where the JVM sends events for it.
        Check.isTrue(mine > 5 * others, catching + " has " + mine + " ns, who threw " + others);
        Tracing.stop(target);
    }

    /** Handlers of methods without calls: counts are exact, and the tree stays small. */
    private static void checkHandlersElsewhere(Target target, int times) throws Exception {
        Tracing.clear(target);
        Tracing.start(target, FILTERS);
        run(target, "handled " + times + " 0");
        run(target, "hosted " + times + " 0");
        Tables tables = Tracing.fetch(target);
        Check.equal(tables.callCounts().get(CLASS + "thrower"), 3L * times, "calls of thrower");
        Check.isTrue(deepest(tables) < DEEP, "depth " + deepest(tables));
        Tracing.stop(target);
    }

    private static void checkOverflow(Target target) throws Exception {
        Tracing.clear(target);
        Tracing.start(target, FILTERS);
        run(target, "overflow 3 0");
        run(target, "catching 100 0");
        Map<String, Long> counts = countsByPath(Tracing.fetch(target));
        Check.equal(counts.get("obey overflow afterOverflow"), 3L, "behind the overflow " + counts);
        Check.equal(counts.get("obey catching leaf"), 100L, "the rest of the program " + counts);
        Tracing.stop(target);
    }

    private static void checkAll(Target target, int times) throws Exception {
        checkTree(target, times);
        checkTimes(target, "catching");
        checkHandlersElsewhere(target, times);
        checkOverflow(target);
        target.finish();
    }

    @Case(fixture = Throws.class, agent = "noexceptionevents", alone = true)
    static void callsEndWithTheExceptionThatLeavesThem(Target target) throws Exception {
        checkAll(target, 30_000);
    }

    @Case(fixture = Throws.class, attach = false, agent = "disableexceptiontelemetry", alone = true)
    static void callsEndTheSameWithExceptionEvents(Target target) throws Exception {
        checkTimes(target, "handled");
        checkAll(target, 1000);
    }

    @Case(fixture = Throws.class, attach = false, agent = "noexceptionevents", jvm = "-Xint",
          since = 25)
    static void
    callsEndTheSameInterpreted(Target target) throws Exception {
        checkTree(target, 1000);
        checkOverflow(target);
        target.finish();
    }

    /** The calls that count exceptions come and go while the program throws and is traced. */
    @Case(fixture = Throws.class, load = false, agent = "noexceptionevents")
    static void countingExceptionsLeavesTheTreeAsItIs(Target target) throws Exception {
        String pid = Long.toString(target.pid());
        Tool.vdk("exceptions", "on", pid);
        checkTree(target, 1000);
        Tracing.clear(target);
        Tracing.start(target, FILTERS);
        int number = target.output().split("done ", -1).length;
        target.send("catching 30000 0");
        for (String way : new String[] {"off", "on", "off", "on"}) {
            Tool.vdk("exceptions", way, pid);
        }
        Check.await(() -> target.output().contains("done " + number + " catching"), "the end");
        run(target, "unwinding 100 0");
        Map<String, Long> counts = countsByPath(Tracing.fetch(target));
        Check.equal(counts.get("obey catching leaf"), 30_000L, "behind the catch " + counts);
        Check.equal(counts.get("obey catching thrower thrower thrower thrower"), 30_000L,
                    "the thrower " + counts);
        Tracing.stop(target);
        Check.contains(Tool.vdk("report", pid, "--show", "exceptions"), "Throws$Expected",
                       "exceptions");
        target.finish();
    }

    @Case(fixture = Throws.class, attach = false, agent = "noexceptionevents")
    static void aStackTooDeepToBeReadIsReadAgainFurtherUp(Target target) throws Exception {
        target.ask("dive 3000 0", "at the bottom");
        Tracing.start(target, FILTERS);
        target.ask("up", "done 1 dive");
        Tables tables = Tracing.fetch(target);
        Check.equal(tables.callCounts().get(CLASS + "onTheWayUp"), 3001L, "calls on the way up");
        for (Map.Entry<Integer, Object[]> entry : tables.rows.get(Tables.CPU).entrySet()) {
            int frame = tables.intAt(Tables.THREADFRAME, entry.getKey(), 2);
            String method = frame <= 0 ? "" : tables.frameMethod(frame);
            if (method.equals(CLASS + "onTheWayUp") || method.equals(CLASS + "afterDive")) {
                Check.equal(tables.parent(frame) <= 0 ? "none"
                                                      : tables.frameMethod(tables.parent(frame)),
                            CLASS + (method.endsWith("Dive") ? "dive" : "deep"),
                            "caller of " + method);
            }
        }
        tables.checkTimes();
        target.finish();
    }
}
