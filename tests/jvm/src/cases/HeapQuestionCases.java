package cases;

import fixtures.Holdings;
import java.io.BufferedReader;
import java.io.InputStreamReader;
import java.io.PrintStream;
import java.nio.charset.StandardCharsets;
import java.nio.file.Path;
import java.util.ArrayList;
import java.util.Arrays;
import java.util.List;
import java.util.Map;
import java.util.TreeMap;
import java.util.regex.Matcher;
import java.util.regex.Pattern;
import jvmtest.Case;
import jvmtest.Check;
import jvmtest.Target;
import jvmtest.Tool;

/** What reports say of a live heap, against what its program built. */
public final class HeapQuestionCases {
    private static final String NAME = Holdings.class.getName();
    private static final Pattern MEMBER =
            Pattern.compile("\"(\\w+)\":(?:\"((?:[^\"\\\\]|\\\\.)*)\"|(-?[0-9.]+)|null)");
    private static final String TEXT = "a text that is there so often";

    private HeapQuestionCases() {
    }

    /** A server of one opened dump. */
    private static final class Heap implements AutoCloseable {
        private final Process process;
        private final PrintStream out;
        private final BufferedReader in;

        Heap(Path dump) throws Exception {
            process = new ProcessBuilder(Tool.vdkCommand("heap", dump.toString(), "server"))
                              .redirectError(ProcessBuilder.Redirect.INHERIT)
                              .start();
            out = new PrintStream(process.getOutputStream(), true, StandardCharsets.UTF_8);
            in = new BufferedReader(
                    new InputStreamReader(process.getInputStream(), StandardCharsets.UTF_8));
        }

        /** The objects in the answer, innermost ones with their members; absent ones are null. */
        List<Map<String, String>> ask(String... words) throws Exception {
            out.println("{\"words\":[\"" + String.join("\",\"", words) + "\"]}");
            String answer = in.readLine();
            Check.contains(answer, "\"code\":0", "answer to " + List.of(words));
            List<Map<String, String>> objects = new ArrayList<>();
            for (String part : answer.split("[{}]")) {
                Map<String, String> members = new TreeMap<>();
                Matcher matcher = MEMBER.matcher(part);
                while (matcher.find()) {
                    members.put(matcher.group(1),
                                matcher.group(2) != null ? matcher.group(2) : matcher.group(3));
                }
                objects.add(members);
            }
            return objects;
        }

        /** The only object with those members: name, value and so on. */
        Map<String, String> only(String[] words, String... wanted) throws Exception {
            List<Map<String, String>> found = new ArrayList<>();
            for (Map<String, String> each : ask(words)) {
                boolean fits = true;
                for (int i = 0; i < wanted.length; i += 2) {
                    fits &= each.containsKey(wanted[i]) &&
                            String.valueOf(wanted[i + 1])
                                    .equals(String.valueOf(each.get(wanted[i])));
                }
                if (fits) {
                    found.add(each);
                }
            }
            Check.equal(found.size(), 1,
                        List.of(words) + " with " + Arrays.asList(wanted) + ": " + found);
            return found.get(0);
        }

        @Override
        public void close() throws Exception {
            out.close();
            Check.equal(process.waitFor(), 0, "exit code of the server");
        }
    }

    private static void equal(Map<String, String> row, Object... members) {
        for (int i = 0; i < members.length; i += 2) {
            Check.equal(row.get(members[i]), String.valueOf(members[i + 1]),
                        members[i] + " of " + row);
        }
    }

    private static String[] words(String... words) {
        return words;
    }

    private static long number(Map<String, String> row, String member) {
        return Long.parseLong(row.get(member));
    }

    private static Path dump(Target target, String name) throws Exception {
        Path file = target.folder.resolve(name);
        Tool.run(List.of(target.jdk.home + "/bin/jcmd",
                         "-J-Dsun.tools.attach.attachTimeout=" + Check.LIMIT_SECONDS * 1000,
                         Long.toString(target.pid()), "GC.heap_dump", file.toString()));
        return file;
    }

    private static void checkLeak(Heap heap) throws Exception {
        String[] suspects = words("suspects");
        Map<String, String> leak =
                heap.only(suspects, "heldBy", "static field " + NAME + "$Cache.OPEN");
        for (Map<String, String> each : heap.ask(suspects)) {
            Check.isTrue(!each.containsKey("heldBy") || each.equals(leak), "another one: " + each);
        }
        Map<String, String> session =
                heap.only(words("histogram", NAME + "$*"), "class", NAME + "$Session");
        equal(session, "count", Holdings.SESSIONS, "retained",
              Holdings.SESSIONS * (long) Holdings.ARRAY_BYTES + number(session, "shallow"));
        equal(heap.only(words("sql", "select count(*) n, sum(retained) bytes from objects where "
                                             + "class_name(object) = '" + NAME + "$Session'"),
                        "n", session.get("count")),
              "bytes", session.get("retained"));
        List<Map<String, String>> paths = heap.ask("paths", NAME + "$Session");
        Check.equal(paths.stream()
                            .filter(each -> "OPEN".equals(each.get("name")))
                            .toList()
                            .get(0)
                            .get("count"),
                    Integer.toString(Holdings.SESSIONS), "paths through the leak: " + paths);
    }

    private static void checkThreads(Heap heap) throws Exception {
        for (int i = 1; i <= Holdings.THREADS; i++) {
            String name = "holder-" + i;
            int arrays = i * Holdings.ARRAYS_OF_THREAD;
            Map<String, String> local = heap.only(
                    words("sql", "select o.length, o.shallow, o.retained from objects o where "
                                         + "o.object in (select r.object from roots r join threads "
                                         + "t using (thread) where t.name = '" + name + "') and "
                                         + "class_name(o.object) = 'byte[][]'"),
                    "length", Integer.toString(arrays));
            long bytes = arrays * (long) Holdings.ARRAY_BYTES;
            Check.equal(number(local, "retained") - number(local, "shallow"), bytes,
                        "retained by the local of " + name);
            Map<String, String> thread = heap.only(words("threads"), "name", name);
            long own = number(thread, "retained") - number(local, "retained");
            Check.isTrue(own > 0 && own < 5000, name + " itself: " + thread);
            Map<String, String> biggest = heap.only(words("biggest", "--top", "1000"), "class",
                                                    "byte[][]", "length", Integer.toString(arrays));
            Check.contains(String.valueOf(biggest.get("local")),
                           "thread \\\"" + name + "\\\" at " + NAME + ".hold", "holder");
        }
    }

    private static void checkWaste(Heap heap) throws Exception {
        String[] collections = words("collections", "--top", "1000");
        equal(heap.only(collections, "owner", NAME + "$Wasteful.list"), "count", Holdings.LISTS,
              "elements", Holdings.LISTS, "slots", 100 * Holdings.LISTS);
        equal(heap.only(collections, "owner", NAME + "$Wasteful.map"), "count", Holdings.MAPS,
              "elements", Holdings.MAPS, "slots", 256 * Holdings.MAPS);
        String[] strings = words("strings", "--top", "10000");
        equal(heap.only(strings, "text", TEXT), "count", Holdings.TEXTS + 1);
        long held = number(heap.only(strings, "owner", NAME + "$Named.name"), "count");
        Check.isTrue(held == Holdings.TEXTS || held == Holdings.TEXTS - 1,
                     "all but the first: " + held);
        equal(heap.only(words("duplicates", "--top", "10000"), "content", "4711 815 42"), "count",
              Holdings.NUMBERS);
        equal(heap.only(words("loaders", "--top", "1000"), "class", "fixtures.Isolated", "copies",
                        Integer.toString(Holdings.LOADERS)),
              "copies", Holdings.LOADERS);
    }

    /** What references hold: each a Holdings object with its array. */
    private static void checkHeld(Heap heap, String type, String referent, int count, int perhaps)
            throws Exception {
        Map<String, String> found = heap.only(words("references", "--top", "10000"), "class", type,
                                              "referent", referent);
        Map<String, String> sum = heap.only(words("histogram", NAME + "$*"), "class", referent);
        long alone = number(found, "alone");
        long each = Holdings.ARRAY_BYTES + number(sum, "shallow") / number(sum, "count");
        Check.isTrue(alone <= count && alone >= count - perhaps, "alone: " + found);
        equal(found, "count", count, "retained", alone * each);
    }

    private static void checkReferences(Heap heap, boolean softAreCleared) throws Exception {
        String[] references = words("references", "--top", "10000");
        if (softAreCleared) {
            equal(heap.only(references, "class", NAME + "$SoftOne", "referent", null), "count",
                  Holdings.SOFT);
        } else {
            checkHeld(heap, NAME + "$SoftOne", NAME + "$Kept", Holdings.SOFT, 0);
        }
        // The finalizer that runs has its object in a local variable.
        checkHeld(heap, "java.lang.ref.Finalizer", NAME + "$Finalized", Holdings.FINALIZED, 1);
        equal(heap.only(references, "class", "java.lang.ref.Finalizer", "referent",
                        NAME + "$Finalized"),
              "queued", Holdings.FINALIZED - 1);
        equal(heap.only(references, "class", NAME + "$WeakOne", "referent", NAME + "$Decoy"),
              "count", Holdings.WEAK, "alone", 0, "kind", "weak");
        equal(heap.only(references, "class", NAME + "$WeakOne", "referent", null), "count",
              Holdings.CLEARED);
    }

    @Case(fixture = Holdings.class, attach = false,
          variants = {"-Xmx256m -XX:+UseSerialGC", "-Xmx256m -XX:+UseParallelGC",
                      "-Xmx256m -XX:+UseG1GC", "-Xmx256m -XX:+UseZGC",
                      "-Xmx256m -XX:+UseShenandoahGC"})
    static void
    answersAreWhatTheProgramBuilt(Target target) throws Exception {
        Path before = dump(target, "before.hprof");
        target.ask("more", "grown");
        Path after = dump(target, "after.hprof");
        target.finish();
        try (Heap heap = new Heap(before)) {
            checkLeak(heap);
            checkThreads(heap);
            checkWaste(heap);
            // The collection before a dump clears soft ones there.
            checkReferences(heap, target.variant.contains("Shenandoah"));
            equal(heap.only(words("diff", after.toString(), "--top", "1000"), "class",
                            NAME + "$Growth", "countBefore", "0", "holder", "class " + NAME),
                  "count", Holdings.GROWTH);
        }
    }
}
