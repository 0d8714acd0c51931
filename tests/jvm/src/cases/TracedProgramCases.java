package cases;

import fixtures.Compiles;
import fixtures.Fragile;
import fixtures.LeavingCalls;
import fixtures.MixedRounds;
import java.util.ArrayList;
import java.util.List;
import java.util.Map;
import jvmtest.Case;
import jvmtest.Check;
import jvmtest.Sampling;
import jvmtest.Tables;
import jvmtest.Target;
import jvmtest.Tracing;

/** Programs under CPU tracing: they do what they did without, and no call is lost. */
public final class TracedProgramCases {
    private static final int MOST_ROUNDS = 50;

    private static final String JDK = "java.*\njdk.*\nsun.*";
    private static final String CALLS = "fixtures.LeavingCalls.";

    /** Method and number of calls of one round of LeavingCalls. */
    private static final Object[][] LEFT = {
            {"LeavingCalls$Failing.<init>", 60L}, {"LeavingCalls.nested", 80L},
            {"LeavingCalls.thrower", 80L},        {"LeavingCalls.cleaner", 200L},
            {"LeavingCalls.fromNative", 25L},     {"LeavingCalls.cause", 25L},
            {"LeavingCalls.index", 90L},          {"LeavingCalls.dies", 16L},
            {"LeavingCalls.deeper", 16L},         {"LeavingCalls.parallel", 16L},
            {"LeavingCalls.leaf", 8000L},
    };

    private TracedProgramCases() {
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

    @Case(fixture = LeavingCalls.class, agent = "deadthreadlimit=500,keepfiltered", attach = false)
    static void countsCallsThatAreLeftInUnusualWays(Target target) throws Exception {
        target.ask("go", "done 1");
        Tracing.start(target, "");
        target.ask("go", "done 2");
        target.ask("go", "done 3");
        Tables tables = Tracing.fetch(target);
        checkLeft(tables, 2);
        tables.checkTimes();
        Check.equal(tables.callCounts("parallel-").get(CALLS + "leaf"), 16000L, "leaf by thread");
        Check.equal(tables.callCounts("dying-").get(CALLS + "deeper"), 32L, "deeper by thread");
        Tracing.stop(target);
        target.finish();
    }

    /** Without wall times, and with wall time for all that begins with fixtures. */
    @Case(fixture = LeavingCalls.class, attach = false,
          variants =
                  {"", "25:-Xint",
                   "-Xcomp -XX:CompileCommand=quiet -XX:CompileCommand=compileonly,fixtures.*::*"})
    static void
    countsTheSameInterpretedCompiledAndUnderWallTime(Target target) throws Exception {
        for (int i = 1; i <= 2; i++) {
            Tracing.start(target, JDK, i == 1 ? "" : "fixtures.*");
            target.ask("go", "done " + i);
            Tables tables = Tracing.fetch(target);
            checkLeft(tables, 1);
            if (!target.variant.contains("comp")) {
                tables.checkTimes();
            }
            Tracing.stop(target);
            Tracing.clear(target);
        }
        target.finish();
    }

    @Case(fixture = LeavingCalls.class, attach = false)
    static void callsBegunBeforeTheStartAreNotCounted(Target target) throws Exception {
        target.ask("inside", "made 1");
        Tracing.start(target, "");
        target.ask("inside", "made 2");
        target.ask("inside", "made 3");
        Tables tables = Tracing.fetch(target);
        Map<String, Long> counts = tables.callCounts("early");
        Check.equal(counts.get(CALLS + "inside"), 2L, "calls of inside");
        Check.equal(counts.getOrDefault(CALLS + "early", 0L), 0L, "calls of early");
        tables.checkTimes();
        Tracing.stop(target);
        target.ask("inside", "made 4");
        Check.equal(Tracing.fetch(target).callCounts("early").get(CALLS + "inside"), 2L,
                    "after the stop");
        Tracing.clear(target);
        Tracing.start(target, "");
        target.ask("inside", "made 5");
        Check.equal(Tracing.fetch(target).callCounts("early").get(CALLS + "inside"), 1L, "anew");
        target.finish();
    }

    @Case(fixture = LeavingCalls.class, agent = "handlebadtimes", load = false)
    static void classesLoadedBeforeAnAttachAreCountedOnceRetransformed(Target target)
            throws Exception {
        target.ask("go", "done 1");
        Tracing.retransform(target);
        Check.contains(target.log(), "Class retransform completed", "log");
        Check.contains(target.log(), "Retransforming failed: fixtures.Isolated: ", "log");
        Check.equal(target.log().split("Retransforming failed").length, 2, "parts around failures");
        Tracing.start(target, JDK);
        target.ask("go", "done 2");
        checkLeft(Tracing.fetch(target), 1);
        Tracing.stop(target);
        target.ask("go", "done 3");
        target.finish();
    }

    /** Switches while all threads are inside calls: none is harmed, and times stay sound. */
    @Case(fixture = LeavingCalls.class, attach = false)
    static void isSwitchedManyTimesWhileThreadsRun(Target target) throws Exception {
        for (int i = 0; i < 6; i++) {
            target.send("go");
        }
        for (int i = 0; i < 12; i++) {
            Tracing.start(target, i % 2 == 0 ? "" : "java.*");
            Tracing.fetch(target).checkTimes();
            Tracing.stop(target);
        }
        target.awaitOutput("done 6\n");
        Tracing.fetch(target).checkTimes();
        target.finish();
    }

    /** Off, traced, sampled, traced: the program prints what it prints without the agent. */
    private static void compare(Target target, String filters) throws Exception {
        target.ask("go", "done 1");
        Tracing.start(target, filters);
        target.ask("go", "done 2");
        Tracing.fetch(target).checkTimes();
        Tracing.stop(target);
        Tracing.clear(target);
        Sampling.start(target);
        int rounds = 2;
        do {
            // Mostly threads that come and go: samples may find nobody at work.
            rounds++;
            Check.isTrue(rounds < MOST_ROUNDS, "somebody is charged");
            target.ask("go", "done " + rounds);
        } while (Tracing.fetch(target).ownTimes().isEmpty());
        Sampling.capture(target);
        Tracing.stop(target);
        Tracing.start(target, filters);
        rounds++;
        target.ask("go", "done " + rounds);
        target.finish();
        Check.equal(target.output(), target.plainOutput("go\n".repeat(rounds) + "stop\n"),
                    "output");
        Tracing.checkQuiet(target);
    }

    @Case(fixture = MixedRounds.class, agent = "keepfiltered",
          jvm = {"-XX:+UnlockDiagnosticVMOptions", "-XX:+BytecodeVerificationLocal"},
          variants = "-Xcheck:jni")
    static void
    aMixedProgramStaysTheSame(Target target) throws Exception {
        compare(target, "java.*");
    }

    @Case(fixture = MixedRounds.class, attach = false)
    static void aMixedProgramStaysTheSameUnfiltered(Target target) throws Exception {
        compare(target, "");
    }

    @Case(fixture = MixedRounds.class, attach = false,
          variants = {"-XX:+UseSerialGC -Xshare:off", "-XX:+UseParallelGC", "-XX:+UseZGC -Xmx256m",
                      "-XX:+UseShenandoahGC -Xmx256m", "25:-Xint"})
    static void
    aMixedProgramStaysTheSameInJvmsOfAllKinds(Target target) throws Exception {
        compare(target, "java.*");
    }

    /** Loaders of many kinds, versions that serialization computes. */
    @Case(fixture = Fragile.class)
    static void whatInsertedCodeCouldDisturbStaysTheSame(Target target) throws Exception {
        String plain = target.plainOutput("go\ngo\nstop\n");
        target.ask("go", "done 1");
        Tracing.start(target, "java.*");
        target.ask("go", "done 2");
        Tables tables = Tracing.fetch(target);
        Check.isTrue(tables.callCounts().keySet().stream().noneMatch(n -> n.contains("$$VDK$$")),
                     "renamed natives stay out of sight");
        Check.isTrue(tables.rows.get(Tables.FRAME)
                             .keySet()
                             .stream()
                             .map(tables::stack)
                             .anyMatch(s
                                       -> String.join(" ", s).matches(
                                               ".*Fragile.early .*Isolated.answer")),
                     "the class of the early loader calls the agent");
        Tracing.stop(target);
        target.finish();
        Check.equal(target.output(), plain, "output");
        Check.contains(target.log(), "skipping: its class loader does not find the agent", "log");
    }

    /** Sampling needs no rewriting. */
    @Case(fixture = Fragile.class,
          agent = "disabletracing,disablealloc,disablenatives,builtinprobes=none,disablej2ee",
          attach = false, since = 25)
    static void
    nothingIsRewrittenWhereNothingCouldBeRecorded(Target target) throws Exception {
        String plain = target.plainOutput("go\nstop\n");
        target.ask("go", "done 1");
        target.finish();
        Check.equal(target.output(), plain, "output");
        Check.contains(target.log(), "rewritten: 0 of 0 classes", "log");
    }

    @Case(fixture = MixedRounds.class, attach = false)
    static void endsWithItsOwnExitCodeFromInsideCalls(Target target) throws Exception {
        Tracing.start(target, "");
        target.send("exit 37");
        Check.equal(target.awaitExit(), 37, "exit code; " + target.state());
        Check.equal(target.output(), "ready\nbye\n", "output");
    }

    @Case(fixture = MixedRounds.class, attach = false)
    static void endsByAnUncaughtExceptionAsWithout(Target target) throws Exception {
        Tracing.start(target, "");
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
