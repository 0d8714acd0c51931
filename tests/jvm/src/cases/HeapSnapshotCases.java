package cases;

import fixtures.CapturesItself;
import fixtures.KnownHeap;
import fixtures.Leaks;
import java.nio.file.Path;
import java.util.ArrayList;
import java.util.List;
import jvmtest.Case;
import jvmtest.Check;
import jvmtest.Target;
import jvmtest.Tool;

/** Snapshots of a live heap, beside the JVM's own dump of it and under load. */
public final class HeapSnapshotCases {
    private static final String KNOWN = KnownHeap.class.getName();

    private HeapSnapshotCases() {
    }

    private static Path capture(Target target, String name) throws Exception {
        Path file = target.folder.resolve(name);
        Tool.vdk("snapshot", Long.toString(target.pid()), "--heap", "--pattern", name + "-made",
                 "--out", file.toString());
        return file;
    }

    private static String retained(Path file) throws Exception {
        String all = Tool.vdk("heap", file.toString(), "retained", KNOWN + "$Leaf", "--json");
        return all.substring(all.indexOf("\"retained\""));
    }

    /** Objects, fields, elements and statics one by one. */
    private static void compareWithTheDumpOfTheJvm(Target target) throws Exception {
        Path dump = target.folder.resolve("known.hprof");
        // Collects first: what it leaves is what the snapshot finds.
        Tool.run(List.of(target.jdk.home + "/bin/jcmd",
                         "-J-Dsun.tools.attach.attachTimeout=" + Check.LIMIT_SECONDS * 1000,
                         Long.toString(target.pid()), "GC.heap_dump", dump.toString()));
        Path snapshot = capture(target, "known.snapshot");
        String result = Tool.run(List.of(System.getProperty("vdk.build") + "/compare_heaps",
                                         dump.toString(), snapshot.toString(), "fixtures."));
        Check.isTrue(result.endsWith(" pairs, 0 differences\n") && result.length() < 40 &&
                             Integer.parseInt(result.split(" ")[0]) > 2000,
                     "comparison: " + result);
        Check.equal(retained(snapshot), retained(dump), "retained by the chain");
        target.finish();
    }

    @Case(fixture = KnownHeap.class)
    static void holdsWhatTheJvmDumps(Target target) throws Exception {
        compareWithTheDumpOfTheJvm(target);
    }

    @Case(fixture = KnownHeap.class, jvm = "-XX:+UseZGC", attach = false)
    static void holdsWhatTheJvmDumpsWithZgc(Target target) throws Exception {
        compareWithTheDumpOfTheJvm(target);
    }

    @Case(fixture = KnownHeap.class, jvm = {"-XX:+UseSerialGC", "-XX:-UseCompressedOops"},
          attach = false)
    static void
    holdsWhatTheJvmDumpsWithFullReferences(Target target) throws Exception {
        compareWithTheDumpOfTheJvm(target);
    }

    @Case(fixture = KnownHeap.class, attach = false, since = 25,
          jvm = {"-XX:+UseCompactObjectHeaders", "-XX:+UseParallelGC"})
    static void
    holdsWhatTheJvmDumpsWithCompactHeaders(Target target) throws Exception {
        compareWithTheDumpOfTheJvm(target);
    }

    @Case(fixture = KnownHeap.class, agent = "onexit=memory", attach = false)
    static void isCapturedOnExit(Target target) throws Exception {
        target.finish();
        String[] names =
                target.folder.toFile().list((dir, name) -> name.endsWith("-shutdown.snapshot"));
        Check.equal(names.length, 1, "snapshots on exit");
        Path file = target.folder.resolve(names[0]);
        String histogram = Tool.vdk("heap", file.toString(), "histogram", KNOWN + "$Leaf");
        Check.contains(histogram, "1,000", "objects");
    }

    @Case(fixture = KnownHeap.class, args = "churn", agent = "tracing", attach = false)
    static void isCapturedTwiceAtATimeWhileTheProgramRuns(Target target) throws Exception {
        List<Throwable> failures = new ArrayList<>();
        List<Thread> threads = new ArrayList<>();
        for (int t = 0; t < 2; t++) {
            String name = "loaded" + t;
            Thread thread = new Thread(() -> {
                try {
                    Path file = capture(target, name);
                    Check.contains(Tool.vdk("heap", file.toString(), "histogram",
                                            "java.lang.String", "--no-retained"),
                                   "java.lang.String", "classes");
                } catch (Throwable e) {
                    synchronized (failures) {
                        failures.add(e);
                    }
                }
            });
            thread.start();
            threads.add(thread);
        }
        for (Thread thread : threads) {
            thread.join();
        }
        Check.equal(failures.toString(), "[]", "failures");
        capture(target, "after");
        target.finish();
    }

    /** Requests go one by one, so the captures are the program's own. */
    @Case(fixture = CapturesItself.class, jvm = "-Xmx64m")
    static void isCapturedWhileClassesAreRewritten(Target target) throws Exception {
        Path file = target.folder.resolve("own.snapshot");
        target.ask("captures " + file, "captured");
        Tool.vdk("alloc", "start", target.id(), "--each", "10");
        for (int i = 0; i < 6; i++) {
            Tool.vdk("exceptions", i % 2 == 0 ? "on" : "off", target.id());
        }
        Tool.vdk("alloc", "stop", target.id());
        target.ask("captures " + file, "captured");
        for (Path of : List.of(file, capture(target, "requested"))) {
            Check.contains(Tool.vdk("heap", of.toString(), "histogram",
                                    CapturesItself.class.getName() + "$Known", "--no-retained"),
                           "1,000 objects", "known objects");
        }
        target.finish();
    }

    private static String report(Target target, String what) throws Exception {
        return Tool.vdk("report", target.id(), "--show", what, "--by", "class", "--json")
                .replaceAll("\\s+", " ");
    }

    private static String sites(Path file, String... more) throws Exception {
        List<String> words = new ArrayList<>(
                List.of("heap", file.toString(), "sites", "fixtures.*", "--json", "--by", "path"));
        words.addAll(List.of(more));
        String all = Tool.vdk(words.toArray(new String[0]));
        return all.substring(all.indexOf("\"since\"")).replaceAll("\\s+", " ");
    }

    /** Where a leak comes from and what holds it. */
    @Case(fixture = Leaks.class)
    static void tellsWhatWasMadeSinceAMarkAndWhatHoldsIt(Target target) throws Exception {
        Tool.vdk("alloc", "start", target.id(), "--each", "1");
        Check.contains(Tool.vdk("generation", target.id(), "baseline"), "(baseline)", "mark");
        target.ask("leak 1000", "leaked");
        Path file = target.folder.resolve("leak.snapshot");
        Tool.vdk("heap", "capture", target.id(), "--sites", "--out", file.toString());
        // The JVM tells of the dead later, on a thread of its own.
        Check.await(()
                            -> report(target, "garbage")
                                       .contains("{ \"class\": \"fixtures.Leaks$Temporary\", "
                                                 + "\"bytes\": 24000, \"objects\": 1000 }"),
                    "garbage");
        Check.contains(
                report(target, "live"),
                "{ \"class\": \"fixtures.Leaks$Entry\", \"bytes\": 24000, \"objects\": 1000 }",
                "live objects");
        target.finish();

        String entries = "{ \"class\": \"fixtures.Leaks$Entry\", \"count\": 1000, "
                         + "\"shallow\": 24000, \"method\": \"fixtures.Leaks.make\", \"stack\": "
                         + "[ \"fixtures.Leaks.make\", \"fixtures.Leaks.leak\", "
                         + "\"fixtures.Leaks.main\" ] }";
        String index = target.folder.resolve("leak.index").toString();
        String held = sites(file, "--since", "baseline", "--held-by", "--index", index);
        Check.contains(held, "\"sites\": [ " + entries + " ]", "made since the mark");
        Check.contains(held,
                       "\"class\": \"fixtures.Leaks$Registry\", \"field\": \"newest\", "
                               + "\"holders\": 1, \"count\": 1000",
                       "holder");
        Check.contains(held, "\"text\": \"fixtures.Leaks\"", "path to the holder");
        Check.equal(sites(file, "--since", "baseline", "--held-by", "--index", index), held,
                    "the same from the index");
        Check.contains(sites(file, "--by", "class"), "\"count\": 1100", "all entries");
        Check.contains(Tool.vdk("heap", file.toString(), "generations"), "baseline", "marks");
        Check.contains(Tool.vdkEndsWith(1, "heap", file.toString(), "sites", "--since", "other"),
                       "no generation other", "unknown mark");
    }
}
