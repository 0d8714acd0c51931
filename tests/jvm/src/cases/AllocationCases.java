package cases;

import fixtures.Allocates;
import java.io.BufferedReader;
import java.io.InputStreamReader;
import java.util.ArrayList;
import java.util.List;
import java.util.regex.Matcher;
import java.util.regex.Pattern;
import jvmtest.Case;
import jvmtest.Check;
import jvmtest.Target;
import jvmtest.Tool;

/** Recording of allocations: how many, of which class and by whom, and which objects live. */
public final class AllocationCases {
    private static final String FIXTURE = "fixtures.Allocates";

    /** Fewer than it takes the JVM to compile a loop, and to replace natives that it knows. */
    private static final int FEW = 100;

    private AllocationCases() {
    }

    private static String vdk(Target target, String command, String... words) throws Exception {
        String[] all = new String[words.length + 1];
        all[0] = command;
        System.arraycopy(words, 0, all, 1, words.length);
        for (int i = 0; i < all.length; i++) {
            all[i] = all[i].equals("TARGET") ? ":" + target.port : all[i];
        }
        return Tool.vdk(all);
    }

    private static void allocate(Target target, String kind, int number) throws Exception {
        int before = target.output().split("done " + kind + "\n", -1).length;
        target.send(kind + " " + number);
        Check.await(()
                            -> target.output().split("done " + kind + "\n", -1).length > before,
                    kind + " in " + target.output());
    }

    private static String report(Target target) throws Exception {
        return vdk(target, "report", "TARGET", "--show", "allocations", "--json", "--top", "1000");
    }

    /** A number of the object that begins with this field and text; 0 if there is none. */
    private static long number(String json, String name, String field) {
        Matcher matcher =
                Pattern.compile(Pattern.quote(name) + "\",[^}]*?\"" + field + "\": *([0-9]+)")
                        .matcher(json);
        return matcher.find() ? Long.parseLong(matcher.group(1)) : 0;
    }

    static long objects(String report, String type) {
        return number(report, "\"class\": \"" + type, "objects");
    }

    private static long bytes(String report, String type) {
        return number(report, "\"class\": \"" + type, "bytes");
    }

    private static int recordedAlive(Target target) throws Exception {
        Matcher matcher = Pattern.compile("allocator records= *([0-9]+)/")
                                  .matcher(vdk(target, "stats", "TARGET"));
        return matcher.find() ? Integer.parseInt(matcher.group(1)) : 0;
    }

    private static void checkKind(Target target, String kind, String method, String type,
                                  int bytesOfOne) throws Exception {
        vdk(target, "clear", "TARGET", "--allocations");
        allocate(target, kind, FEW);
        String report = report(target);
        String what = kind + " of " + type + ": " + report;
        Check.equal(objects(report, type), (long) FEW, what);
        Check.equal(bytes(report, type), (long) FEW * bytesOfOne, what);
        Check.isTrue(number(report, "\"name\": \"" + method, "objects") >= FEW,
                     method + " allocated " + what);
    }

    /** What top shows of its intervals adds up to what was allocated. */
    private static void checkTop(Target target, String field, String... show) throws Exception {
        List<String> command =
                new ArrayList<>(Tool.vdkCommand("top", ":" + target.port, "--json", "--top", "1000",
                                                "--interval", "200ms", "--count", "100000"));
        command.addAll(List.of(show));
        Process top =
                new ProcessBuilder(command).redirectError(ProcessBuilder.Redirect.DISCARD).start();
        try {
            BufferedReader lines = new BufferedReader(new InputStreamReader(top.getInputStream()));
            String line = lines.readLine(); // it looks by now
            allocate(target, "created", FEW);
            long seen = 0;
            for (int i = 0; i < 1000 && line != null && seen < FEW; i++) {
                line = lines.readLine();
                seen += number(line, "\"class\":\"" + FIXTURE + "$Known", field);
            }
            Check.equal(seen, (long) FEW, "objects in top");
        } finally {
            top.destroyForcibly();
        }
    }

    @Case(fixture = Allocates.class, jvm = {"-XX:+UseSerialGC", "-Xint"})
    static void countsEveryObjectByClassAndMethod(Target target) throws Exception {
        vdk(target, "alloc", "start", "TARGET", "--each", "1");
        checkKind(target, "created", FIXTURE + ".created", FIXTURE + "$Known", 24);
        checkKind(target, "arrays", FIXTURE + ".arrays", "short[]", 216);
        checkKind(target, "nested", FIXTURE + ".nested", "float[][]", 24);
        checkKind(target, "boxed", "java.lang.Integer.valueOf", "java.lang.Integer", 16);
        checkKind(target, "copied",
                  target.jdk.release < 25 ? "java.util.Arrays.copyOf" : "java.lang.Object.clone",
                  "double[]", 72);
        checkKind(target, "reflectedArrays", "java.lang.reflect.Array.newArray",
                  "fixtures.Allocates[]", 40);
        checkKind(target, "threads", FIXTURE + ".created", FIXTURE + "$Known", 24);
        if (target.jdk.release >= 21) {
            checkKind(target, "virtual", FIXTURE + ".created", FIXTURE + "$Known", 24);
        }
        vdk(target, "clear", "TARGET", "--allocations");
        allocate(target, "cloned", FEW);
        Check.isTrue(objects(report(target), "float[]") >= FEW, "clones are counted");
        vdk(target, "clear", "TARGET", "--allocations");
        // Later ones come by generated code, which is left alone on some JVMs.
        allocate(target, "reflected", 10);
        Check.equal(objects(report(target), FIXTURE + "$Made"), 10L, "objects made by reflection");
        checkTop(target, "objects");
        checkTop(target, "intervalObjects", "--show", "allocations");
        Tool.checkTopIsLikeReport(":" + target.port, "allocations", "class");
        Tool.checkTopIsLikeReport(":" + target.port, "live", "tree");
        vdk(target, "alloc", "stop", "TARGET");
        vdk(target, "clear", "TARGET", "--allocations");
        allocate(target, "created", FEW);
        Check.equal(objects(report(target), FIXTURE + "$Known"), 0L,
                    "objects recorded while recording is off");
        target.finish();
    }

    @Case(fixture = Allocates.class, jvm = "-XX:+UseSerialGC")
    static void recordsEveryNthAndLargeOnesAndForgetsTheDead(Target target) throws Exception {
        vdk(target, "alloc", "start", "TARGET", "--each", "10", "--size-limit", "1m");
        allocate(target, "created", 20000);
        Check.near(objects(report(target), FIXTURE + "$Known"), 2000, 20, "every tenth");
        vdk(target, "alloc", "stop", "TARGET");
        vdk(target, "clear", "TARGET", "--allocations");
        vdk(target, "alloc", "start", "TARGET", "--each", "1000000", "--size-limit", "216");
        allocate(target, "arrays", FEW);
        allocate(target, "created", FEW);
        String report = report(target);
        Check.equal(objects(report, "short[]"), (long) FEW, "all of the limit's size: " + report);
        Check.isTrue(objects(report, FIXTURE + "$Known") <= 1, "smaller ones: " + report);
        vdk(target, "alloc", "stop", "TARGET");
        vdk(target, "alloc", "start", "TARGET", "--each", "1");
        allocate(target, "kept", 5000);
        Check.isTrue(recordedAlive(target) >= 5000, "live objects have rows");
        vdk(target, "alloc", "stop", "TARGET");
        allocate(target, "drop", 1);
        vdk(target, "gc", "TARGET");
        int limit = 4000;
        for (int i = 0; i < Check.LIMIT_SECONDS && recordedAlive(target) > limit; i++) {
            Thread.sleep(1000); // the JVM tells of the dead later, on a thread of its own
        }
        Check.isTrue(recordedAlive(target) <= limit, "rows of dead objects were given back");
        Tool.checkTopIsLikeReport(":" + target.port, "garbage", "thread");
        target.finish();
    }

    @Case(fixture = Allocates.class, jvm = "-Xmx256m")
    static void estimatesFromSamples(Target target) throws Exception {
        vdk(target, "alloc", "start", "--sampled", "32k", "TARGET");
        allocate(target, "created", 5_000_000);
        allocate(target, "arrays", 500_000);
        String report = report(target);
        Check.contains(report, "\"estimated\": true", "an estimate says so");
        Check.near(bytes(report, FIXTURE + "$Known"), 120e6, 12e6, "bytes of small objects");
        Check.near(bytes(report, "short[]"), 108e6, 10.8e6, "bytes of arrays");
        Check.near(objects(report, "short[]"), 500e3, 50e3, "arrays");
        if (target.jdk.release >= 21) {
            vdk(target, "clear", "TARGET", "--allocations");
            allocate(target, "virtual", 5_000_000);
            Check.near(bytes(report(target), FIXTURE + "$Known"), 120e6, 12e6,
                       "bytes allocated on a virtual thread");
        }
        vdk(target, "alloc", "stop", "TARGET");
        target.finish();
    }
}
