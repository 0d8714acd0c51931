package cases;

import fixtures.BroadMix;
import fixtures.Fragile;
import jvmtest.AgentClient;
import jvmtest.Case;
import jvmtest.Check;
import jvmtest.Target;
import jvmtest.Tracing;

/** Programs whose classes, those of the JDK included, are rewritten: they notice nothing. */
public final class RewritingCases {
    private static final String LINES =
            "streams {false=332667, true=166833}\n"
            + "target java.lang.StringIndexOutOfBoundsException\nargument 79600\nproxy name\n"
            + "default lambda\nserialized Point[x=7, y=-7]\nexceptions 250303\nthreads 32000\n"
            + "virtual 200\nisolated 42\n";

    private RewritingCases() {
    }

    private static void run(Target target, int number) throws Exception {
        target.send("go");
        target.awaitOutput("done " + number);
    }

    /** Everything that the program printed since it was ready. */
    private static void checkOutput(Target target, int runs) throws Exception {
        String expected = "";
        for (int i = 1; i <= runs; i++) {
            expected += LINES + "done " + i + "\n";
        }
        String output = target.output();
        Check.equal(output.substring(output.indexOf("ready\n") + 6), expected, "output");
    }

    private static void runIdle(Target target) throws Exception {
        run(target, 1);
        run(target, 2);
        checkOutput(target, 2);
        target.finish();
    }

    private static void runTraced(Target target) throws Exception {
        run(target, 1);
        try (AgentClient client = target.client()) {
            client.startTracing("", "");
        }
        run(target, 2);
        try (AgentClient client = target.client()) {
            client.request(AgentClient.STOP_CPU).ok();
        }
        run(target, 3);
        checkOutput(target, 3);
        target.finish();
    }

    @Case(fixture = BroadMix.class,
          jvm = {"-XX:+UnlockDiagnosticVMOptions", "-XX:+BytecodeVerificationLocal"})
    static void
    everyClassIsVerifiedAndTraced(Target target) throws Exception {
        runTraced(target);
    }

    @Case(fixture = BroadMix.class, attach = false, jvm = {"-Xcheck:jni", "-XX:+UseSerialGC"})
    static void jniChecksFindNothing(Target target) throws Exception {
        runTraced(target);
        Tracing.checkQuiet(target);
    }

    private static void staysTheSame(Target target) throws Exception {
        String plain = target.plainOutput("go\ngo\nstop\n");
        run(target, 1);
        Tracing.start(target, "java.*");
        run(target, 2);
        Tracing.stop(target);
        target.finish();
        Check.equal(target.output(), plain, "output");
    }

    @Case(fixture = Fragile.class)
    static void whatInsertedCodeCouldDisturbStaysTheSame(Target target) throws Exception {
        staysTheSame(target);
        Check.contains(target.log(), "skipping: its class loader does not find the agent", "log");
    }

    /** Sampling needs no rewriting. */
    @Case(fixture = Fragile.class, agent = "disabletracing,disablealloc,disablenatives",
          attach = false, since = 25)
    static void
    nothingIsRewrittenWhereNothingCouldBeRecorded(Target target) throws Exception {
        String plain = target.plainOutput("go\nstop\n");
        run(target, 1);
        target.finish();
        Check.equal(target.output(), plain, "output");
        Check.contains(target.log(), "rewritten: 0 of 0 classes", "log");
    }

    @Case(fixture = BroadMix.class, attach = false, jvm = "-Xint")
    static void runsInterpreted(Target target) throws Exception {
        runIdle(target);
    }

    @Case(fixture = BroadMix.class, attach = false, jvm = "-Xshare:off")
    static void runsWithoutTheArchive(Target target) throws Exception {
        runIdle(target);
    }

    @Case(fixture = BroadMix.class, attach = false, jvm = "-XX:+UseZGC")
    static void runsOnZgc(Target target) throws Exception {
        runIdle(target);
    }

    @Case(fixture = BroadMix.class, attach = false, jvm = "-XX:+UseShenandoahGC")
    static void runsOnShenandoah(Target target) throws Exception {
        runIdle(target);
    }

    @Case(fixture = BroadMix.class, attach = false, jvm = "-XX:+UseParallelGC")
    static void runsOnParallel(Target target) throws Exception {
        runIdle(target);
    }
}
