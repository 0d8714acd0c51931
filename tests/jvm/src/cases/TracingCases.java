package cases;

import fixtures.ComesAndGoes;
import fixtures.KnownCalls;
import fixtures.NativeCalls;
import fixtures.TimedCalls;
import java.util.Map;
import jvmtest.AgentClient;
import jvmtest.Case;
import jvmtest.Check;
import jvmtest.Sampling;
import jvmtest.Tables;
import jvmtest.Target;
import jvmtest.Tracing;

/** CPU tracing: exact numbers of calls, and times that add up. */
public final class TracingCases {
    private static final String CLASS = "fixtures.KnownCalls.";

    /** Method and number of calls of one run. */
    static final Object[][] CALLS = {
            {"run", 1L},      {"fib", 1973L + 80 * 15}, {"<init>", 100L},   {"locked", 100L},
            {"guarded", 60L}, {"hidden", 100L},         {"over(int)", 10L}, {"over(long)", 10L},
            {"unwind", 200L}, {"catching", 50L},        {"after", 100L},    {"deep", 5000L},
            {"parse", 40L},   {"natives", 30L},         {"library", 20L},   {"onThread", 80L},
            {"over", 30L},
    };

    /** The same of other classes of the program: an interface, and one called as byte in short. */
    private static final Object[][] OTHER_CALLS = {
            {"fixtures.KnownBodies.fixed", 70L},
            {"fixtures.KnownBodies.given", 70L},
            {"fixtures.KnownBodies.inside", 70L},
            {"fixtures.KnownBodies.lambda$inside$0", 70L},
            {"B.twice", 45L},
    };

    /** The same of methods of the JDK that nothing else in the program calls. */
    static final Object[][] JDK_CALLS = {
            {"java.lang.StringBuilder.reverse()", 40L},
            {"java.util.BitSet.flip(int)", 60L},
            {"java.util.StringTokenizer.nextToken()", 80L},
            {"java.util.zip.Deflater.getAdler()", 30L},
    };

    /** The same of native methods: of classes that the agent saw being loaded. */
    static final Object[][] NATIVE_CALLS = {
            {"java.util.zip.Deflater.getAdler(long)", 30L},
            {"java.util.zip.Deflater.init", 30L},
            {"java.util.zip.Deflater.deflateBytesBytes", 30L},
    };

    /** The same of a library of the program's own. */
    private static final Object[][] JNI_CALLS = {
            {"bound(int)", 60L}, {"bound(java.lang.String)", 20L},
            {"mixed", 40L},      {"callsBack", 50L},
            {"calledBack", 50L}, {"fails", 30L},
    };

    private TracingCases() {
    }

    static void checkCounts(Tables tables, int runs) {
        checkCounts(tables, CLASS, CALLS, runs);
        checkCounts(tables, "", OTHER_CALLS, runs);
        long rows = tables.rows.get(Tables.METHOD)
                            .keySet()
                            .stream()
                            .map(tables::methodName)
                            .filter(n -> n.endsWith(".twice"))
                            .count();
        Check.equal(rows, 1L, "rows of B.twice");
    }

    static void checkCounts(Tables tables, String prefix, Object[][] calls, int runs) {
        Map<String, Long> counts = tables.callCounts();
        for (Object[] row : calls) {
            Check.equal(counts.getOrDefault(prefix + row[0], 0L), (Long) row[1] * runs,
                        "calls of " + row[0]);
        }
    }

    @Case(fixture = KnownCalls.class,
          jvm = {"-XX:+UnlockDiagnosticVMOptions", "-XX:+BytecodeVerificationLocal"})
    static void
    countsAreExactOnOffAndOnAgain(Target target) throws Exception {
        for (int i = 1; i <= 4; i++) { // the second and the last are traced
            if (i % 2 == 0) {
                Tracing.start(target, "");
            }
            target.ask("go", "done " + i);
            if (i == 2) {
                checkCounts(Tracing.fetch(target), 1);
            }
            if (i % 2 == 0) {
                Tracing.stop(target);
            }
            Tables tables = Tracing.fetch(target);
            checkCounts(tables, i / 2);
            tables.checkTimes();
        }
        // Classes loaded before an attach are rewritten as tracing starts.
        Check.equal(target.log().contains("Class retransform completed"), target.attached, "log");
        target.finish();
    }

    /** Threads count for themselves; who reads or clears meanwhile gets all of it, and once. */
    @Case(fixture = KnownCalls.class, attach = false, agent = "keepfiltered")
    static void countsAreExactWhileTheyAreReadAndClearedAllTheTime(Target target) throws Exception {
        Tracing.start(target, "java.*\njdk.*\nsun.*");
        target.send("go");
        target.send("go");
        Sampling.capture(target);
        Tables followed = new Tables();
        while (!target.output().contains("done 2\n")) {
            Tracing.fetchInto(target, followed);
            followed.checkTimes();
        }
        Tracing.fetchInto(target, followed);
        followed.checkTimes();
        checkCounts(followed, 2);
        checkCounts(Tracing.fetch(target), 2);
        target.send("go");
        while (!target.output().contains("done 3\n")) {
            Tracing.clear(target);
            Tracing.fetch(target).checkTimes();
        }
        Tracing.clear(target);
        target.ask("go", "done 4");
        checkCounts(Tracing.fetch(target), 1);
        target.finish();
    }

    private static long guests(Tables tables) {
        return tables.rows.get(Tables.METHOD)
                .keySet()
                .stream()
                .filter(m -> tables.methodName(m).contains("$Guest"))
                .count();
    }

    /** Row numbers of methods of unloaded classes are free again: those who get them are right. */
    @Case(fixture = ComesAndGoes.class, attach = false, agent = "disablestacktelemetry")
    static void methodsOfUnloadedClassesGoUnlessTheyWereRecorded(Target target) throws Exception {
        target.send("go 40");
        target.awaitOutput("done 40\n");
        Check.isTrue(guests(Tracing.fetch(target)) >= 80, "rows of the classes that were loaded");
        try (AgentClient client = target.client()) {
            client.request(AgentClient.FREE_UNUSED).ok();
        }
        // A thread may still be at work on the last class that it was seen to define.
        Check.isTrue(guests(Tracing.fetch(target)) <= 3, "rows of classes that are gone");
        Tracing.start(target, "java.*\njdk.*\nsun.*");
        target.send("go 40");
        target.awaitOutput("done 80\n");
        Tracing.stop(target);
        try (AgentClient client = target.client()) {
            client.request(AgentClient.FREE_UNUSED).ok();
        }
        Map<String, Long> counts = Tracing.fetch(target).callCounts();
        for (int n = 41; n <= 80; n++) {
            String name = String.format("fixtures.ComesAndGoes$Guest%04d.", n);
            Check.equal(counts.getOrDefault(name + "run", 0L), 1L, "calls of " + name + "run");
            Check.equal(counts.getOrDefault(name + "work", 0L), 2L, "calls of " + name + "work");
        }
        target.finish();
    }

    /** CPU time of round n by the program's own count. */
    private static long cpuOfRound(Target target, int n) throws Exception {
        target.send("go");
        target.awaitOutput("cpu of " + n + ":");
        target.awaitOutput("done " + n + "\n");
        String rest = target.output().substring(target.output().indexOf("cpu of " + n + ":"));
        return Long.parseLong(rest.substring(rest.indexOf(':') + 1, rest.indexOf('\n')));
    }

    /** What a traced call costs, as the agent has measured it. */
    private static long calibration(Target target) {
        String line = target.log();
        line = line.substring(line.indexOf("Calibration: completed"));
        line = line.substring(0, line.indexOf('\n'));
        String[] plainAndTraced = line.split("=");
        return Long.parseLong(plainAndTraced[2].split(" ")[0]) -
                Long.parseLong(plainAndTraced[1].split(" ")[0]);
    }

    /** Compiled in the foreground, so that when a method runs faster does not hang on the load. */
    @Case(fixture = TimedCalls.class, attach = false, alone = true, jvm = "-Xbatch")
    static void ownTimesAddUpToTheTimeOfTheThread(Target target) throws Exception {
        final int rounds = 4;
        int round = 0;
        for (int i = 0; i < rounds; i++) {
            cpuOfRound(target, ++round); // warms up
        }
        long leastPlain = Long.MAX_VALUE;
        long mostPlain = 0;
        long traced = 0;
        for (int i = 0; i < rounds; i++) {
            long plain = cpuOfRound(target, ++round);
            leastPlain = Math.min(leastPlain, plain);
            mostPlain = Math.max(mostPlain, plain);
            Tracing.start(target, "");
            traced += cpuOfRound(target, ++round);
            Tracing.stop(target);
        }
        Tables tables = Tracing.fetch(target);
        tables.checkTimes();
        Map<String, Long> counts = tables.callCounts("timed-");
        Map<String, Long> times = tables.ownTimes();
        long calls = 0;
        long own = 0;
        for (String method : new String[] {"run", "each", "leaf", "fib"}) {
            calls += counts.get("fixtures.TimedCalls." + method);
            own += times.get("fixtures.TimedCalls." + method);
        }
        Check.equal(calls, TimedCalls.CALLS * rounds, "calls");
        long cost = calls * calibration(target);
        double share = (double) (own + cost) / traced;
        String what = "own times " + own + ", cost of tracing " + cost + ", CPU time " + traced +
                      ", untraced rounds " + leastPlain + " to " + mostPlain;
        Check.isTrue(share > 0.98 && share < 1.02, what);
        // Looser: the cost was measured earlier, when the machine was more or less busy.
        double plain = (double) own / rounds;
        Check.isTrue(plain > 0.6 * leastPlain && plain < 1.6 * mostPlain, what);
        double leaves = (double) times.get("fixtures.TimedCalls.leaf") / own;
        Check.isTrue(leaves > 0.6, "the leaves have " + leaves + " of it");
        target.finish();
    }

    /** Of a class that is loaded once the agent is there, whichever way it came. */
    @Case(fixture = NativeCalls.class, agent = "keepfiltered", jvm = "-Xcheck:jni")
    static void nativesOfAnApplicationAreCounted(Target target) throws Exception {
        String plain = target.plainOutput("go\ngo\ngo\ngo\nstop\n");
        for (int i = 1; i <= 4; i++) { // the second and the last are traced
            if (i % 2 == 0) {
                Tracing.start(target, "java.*");
            }
            target.ask("go", "done " + i);
            if (i % 2 == 0) {
                Tracing.stop(target);
            }
            Tables tables = Tracing.fetch(target);
            checkCounts(tables, "fixtures.JniCalls.", JNI_CALLS, i / 2);
            tables.checkTimes();
        }
        target.finish();
        Check.equal(target.output(), plain, "output");
        Tracing.checkQuiet(target);
    }

    @Case(fixture = KnownCalls.class, agent = "keepfiltered")
    static void methodsOfTheJdkAreCountedAndFilteredOnesCollapse(Target target) throws Exception {
        Tracing.start(target, "");
        Check.contains(target.log(), "CPU tracing: Java code keeps filtered calls", "log");
        target.ask("go", "done 1");
        checkCounts(Tracing.fetch(target), "", JDK_CALLS, 1);
        checkCounts(Tracing.fetch(target), "", NATIVE_CALLS, 1);
        Tracing.stop(target);
        Tracing.clear(target);
        Tracing.start(target, "java.*");
        target.ask("go", "done 2");
        Tables tables = Tracing.fetch(target);
        checkCounts(tables, 1);
        // A filtered method that a filtered one calls directly has no frame of its own.
        tables.forEachCpuRow((thread, frame, time) -> {
            String method = tables.frameMethod(frame);
            int parent = tables.parent(frame);
            Check.isTrue(parent <= 0 || !method.startsWith("java.") ||
                                 !tables.frameMethod(parent).startsWith("java."),
                         method + " under " + (parent <= 0 ? "" : tables.frameMethod(parent)));
        });
        Tracing.stop(target);
        target.finish();
    }
}
