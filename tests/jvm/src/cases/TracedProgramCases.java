package cases;

import fixtures.Compiles;
import fixtures.LeavingCalls;
import fixtures.MixedRounds;
import java.util.ArrayList;
import java.util.List;
import java.util.Map;
import jvmtest.AgentClient;
import jvmtest.Case;
import jvmtest.Check;
import jvmtest.Tables;
import jvmtest.Target;
import jvmtest.Tracing;

/** Programs under CPU tracing: they do what they did without, and no call is lost. */
public final class TracedProgramCases {
    private static final int RETRANSFORM = 105201;
    private static final String JDK = "java.*\njdk.*\nsun.*";
    private static final String CALLS = "fixtures.LeavingCalls.";

    /** Method and number of calls of one round of LeavingCalls. */
    private static final Object[][] LEFT = {
            {"LeavingCalls$Failing.<init>", 60L}, {"LeavingCalls.nested", 80L},
            {"LeavingCalls.thrower", 80L},        {"LeavingCalls.cleaner", 200L},
            {"LeavingCalls.fromNative", 25L},     {"LeavingCalls.cause", 25L},
            {"LeavingCalls.index", 90L},          {"LeavingCalls.lockAndThrow", 20L},
            {"LeavingCalls.afterOverflow", 10L},  {"LeavingCalls.dies", 16L},
            {"LeavingCalls.deeper", 16L},         {"LeavingCalls.parallel", 16L},
            {"LeavingCalls.leaf", 8000L},
    };

    private TracedProgramCases() {
    }

    private static void round(Target target, String line, String answer) throws Exception {
        target.send(line);
        target.awaitOutput(answer + "\n");
    }

    private static void checkLeft(Tables tables, int rounds) {
        Map<String, Long> counts = tables.callCounts();
        List<String> wrong = new ArrayList<>();
        for (Object[] row : LEFT) {
            long count = counts.getOrDefault("fixtures." + row[0], 0L);
            if (count != (Long) row[1] * rounds) {
                wrong.add(row[0] + " " + count + " instead of " + (Long) row[1] * rounds);
            }
        }
        Check.equal(wrong, List.of(), "numbers of calls");
    }

    @Case(fixture = LeavingCalls.class, agent = "deadthreadlimit=500", attach = false)
    static void countsCallsThatAreLeftInUnusualWays(Target target) throws Exception {
        round(target, "go", "done 1");
        Tracing.start(target, "", "");
        round(target, "go", "done 2");
        round(target, "go", "done 3");
        Tables tables = Tracing.fetch(target);
        checkLeft(tables, 2);
        tables.checkTimes();
        Check.equal(tables.callCounts("parallel-").get(CALLS + "leaf"), 16000L, "leaf by thread");
        Check.equal(tables.callCounts("dying-").get(CALLS + "deeper"), 32L, "deeper by thread");
        Tracing.stop(target);
        target.finish();
    }

    @Case(fixture = LeavingCalls.class, jvm = "-Xint", attach = false, since = 25)
    static void countsTheSameInterpreted(Target target) throws Exception {
        Tracing.start(target, JDK, "");
        round(target, "go", "done 1");
        Tables tables = Tracing.fetch(target);
        checkLeft(tables, 1);
        tables.checkTimes();
        target.finish();
    }

    @Case(fixture = LeavingCalls.class,
          jvm = {"-Xcomp", "-XX:CompileCommand=quiet",
                 "-XX:CompileCommand=compileonly,fixtures.*::*"},
          attach = false)
    static void
    countsTheSameCompiled(Target target) throws Exception {
        Tracing.start(target, JDK, "");
        round(target, "go", "done 1");
        checkLeft(Tracing.fetch(target), 1);
        target.finish();
    }

    /** Wall time for all that begins with fixtures., CPU time for the rest. */
    @Case(fixture = LeavingCalls.class, attach = false)
    static void countsTheSameUnderWallTime(Target target) throws Exception {
        Tracing.start(target, JDK, "fixtures.*");
        round(target, "go", "done 1");
        Tables tables = Tracing.fetch(target);
        checkLeft(tables, 1);
        tables.checkTimes();
        target.finish();
    }

    @Case(fixture = LeavingCalls.class, attach = false)
    static void callsBegunBeforeTheStartAreNotCounted(Target target) throws Exception {
        round(target, "inside", "made 1");
        Tracing.start(target, "", "");
        round(target, "inside", "made 2");
        round(target, "inside", "made 3");
        Tables tables = Tracing.fetch(target);
        Map<String, Long> counts = tables.callCounts("early");
        Check.equal(counts.get(CALLS + "inside"), 2L, "calls of inside");
        Check.equal(counts.getOrDefault(CALLS + "early", 0L), 0L, "calls of early");
        tables.checkTimes();
        Tracing.stop(target);
        round(target, "inside", "made 4");
        Check.equal(Tracing.fetch(target).callCounts("early").get(CALLS + "inside"), 2L,
                    "after the stop");
        try (AgentClient client = target.client()) {
            client.request(AgentClient.CLEAR_CPU).ok();
        }
        Tracing.start(target, "", "");
        round(target, "inside", "made 5");
        Check.equal(Tracing.fetch(target).callCounts("early").get(CALLS + "inside"), 1L, "anew");
        target.finish();
    }

    @Case(fixture = LeavingCalls.class, agent = "handlebadtimes", load = false)
    static void classesLoadedBeforeAnAttachAreCountedOnceRetransformed(Target target)
            throws Exception {
        round(target, "go", "done 1");
        try (AgentClient client = target.client()) {
            client.request(RETRANSFORM);
            client.out.writeByte(0);
            client.string("");
            client.ok();
        }
        Check.contains(target.log(), "Class retransform completed", "log");
        Check.contains(target.log(), "Retransforming failed: fixtures.Isolated: ", "log");
        Check.equal(target.log().split("Retransforming failed").length, 2, "parts around failures");
        Tracing.start(target, JDK, "");
        round(target, "go", "done 2");
        checkLeft(Tracing.fetch(target), 1);
        Tracing.stop(target);
        round(target, "go", "done 3");
        target.finish();
    }

    /** Switches while all threads are inside calls: none is harmed, and times stay sound. */
    @Case(fixture = LeavingCalls.class, attach = false)
    static void isSwitchedManyTimesWhileThreadsRun(Target target) throws Exception {
        for (int i = 0; i < 6; i++) {
            target.send("go");
        }
        for (int i = 0; i < 12; i++) {
            Tracing.start(target, i % 2 == 0 ? "" : "java.*", "");
            Thread.sleep(40);
            Tracing.fetch(target).checkTimes();
            Tracing.stop(target);
        }
        target.awaitOutput("done 6\n");
        Tracing.fetch(target).checkTimes();
        target.finish();
    }

    /** Off, on, off, on: the program prints what it prints without the agent. */
    private static void staysTheSame(Target target) throws Exception {
        compare(target, "java.*");
    }

    private static void compare(Target target, String filters) throws Exception {
        String plain = target.plainOutput("go\ngo\ngo\ngo\nstop\n");
        round(target, "go", "done 1");
        Tracing.start(target, filters, "");
        round(target, "go", "done 2");
        Tracing.fetch(target).checkTimes();
        Tracing.stop(target);
        round(target, "go", "done 3");
        Tracing.start(target, filters, "");
        round(target, "go", "done 4");
        target.finish();
        Check.equal(target.output(), plain, "output");
        Tracing.checkQuiet(target);
    }

    @Case(fixture = MixedRounds.class)
    static void aMixedProgramStaysTheSame(Target target) throws Exception {
        staysTheSame(target);
    }

    @Case(fixture = MixedRounds.class, attach = false)
    static void aMixedProgramStaysTheSameUnfiltered(Target target) throws Exception {
        compare(target, "");
    }

    @Case(fixture = MixedRounds.class, jvm = {"-XX:+UseSerialGC", "-Xshare:off"}, attach = false)
    static void staysTheSameWithSerialAndNoArchive(Target target) throws Exception {
        staysTheSame(target);
    }

    @Case(fixture = MixedRounds.class, jvm = "-XX:+UseParallelGC", attach = false, since = 25)
    static void staysTheSameWithParallel(Target target) throws Exception {
        staysTheSame(target);
    }

    @Case(fixture = MixedRounds.class, jvm = {"-XX:+UseZGC", "-Xmx256m"}, attach = false)
    static void staysTheSameWithZ(Target target) throws Exception {
        staysTheSame(target);
    }

    @Case(fixture = MixedRounds.class, jvm = {"-XX:+UseShenandoahGC", "-Xmx256m"}, attach = false,
          since = 25)
    static void
    staysTheSameWithShenandoah(Target target) throws Exception {
        staysTheSame(target);
    }

    @Case(fixture = MixedRounds.class, jvm = "-Xint", attach = false, since = 25)
    static void staysTheSameInterpreted(Target target) throws Exception {
        staysTheSame(target);
    }

    @Case(fixture = MixedRounds.class, jvm = "-Xcheck:jni", attach = false)
    static void staysTheSameUnderTheJniChecks(Target target) throws Exception {
        round(target, "go", "done 1");
        Tracing.start(target, "java.*", "");
        round(target, "go", "done 2");
        Tracing.stop(target);
        target.finish();
        Tracing.checkQuiet(target);
    }

    @Case(fixture = MixedRounds.class, attach = false, since = 25,
          jvm = "-agentlib:jdwp=transport=dt_socket,server=y,suspend=n,address=127.0.0.1:0")
    static void
    runsTracedBesideADebugger(Target target) throws Exception {
        round(target, "go", "done 1");
        Tracing.start(target, "java.*", "");
        round(target, "go", "done 2");
        Tracing.stop(target);
        round(target, "go", "done 3");
        target.finish();
    }

    @Case(fixture = MixedRounds.class, attach = false)
    static void endsWithItsOwnExitCodeFromInsideCalls(Target target) throws Exception {
        Tracing.start(target, "", "");
        target.send("exit 37");
        Check.equal(target.awaitExit(), 37, "exit code; " + target.state());
        Check.equal(target.output(), "ready\nbye\n", "output");
    }

    @Case(fixture = MixedRounds.class, attach = false)
    static void endsByAnUncaughtExceptionAsWithout(Target target) throws Exception {
        Tracing.start(target, "", "");
        target.send("throw");
        Check.equal(target.awaitExit(), 1, "exit code; " + target.state());
        Check.contains(target.errors(), "java.lang.IllegalStateException: uncaught", "errors");
        Check.isTrue(!target.errors().contains("com.vandrik"), target.errors());
    }

    @Case(fixture = Compiles.class, attach = false)
    static void javacMakesTheSameClasses(Target target) throws Exception {
        compare(target, JDK + "\ncom.sun.*");
    }
}
