package cases;

import com.sun.tools.attach.AgentInitializationException;
import fixtures.Idle;
import java.nio.file.Files;
import java.util.List;
import jvmtest.Case;
import jvmtest.Check;
import jvmtest.Target;

/**
 * Memory that runs out for the agent, at the n-th of its allocations or from there on: the program
 * runs as if there were no agent. VDK_MEMORY_POINTS in the environment steps through n more finely.
 */
public final class MemoryCases {
    private static final int POINTS =
            Integer.parseInt(System.getenv().getOrDefault("VDK_MEMORY_POINTS", "10"));

    private MemoryCases() {
    }

    @Case(fixture = Idle.class, noAgent = true, attach = false)
    static void mayRunOutAtAnyCallOfAnIdleAgent(Target target) throws Exception {
        runThrough(target, "", POINTS);
    }

    @Case(fixture = Idle.class, noAgent = true, attach = false)
    static void mayRunOutAtAnyCallWhileTracing(Target target) throws Exception {
        runThrough(target, "tracing", POINTS / 2);
    }

    /** A refused attach is an answer; the program goes on in either case. */
    @Case(fixture = Idle.class, noAgent = true, load = false)
    static void mayRunOutAtAnyCallOfAnAttach(Target target) throws Exception {
        target.finish();
        long calls = attachAndEnd(target, 0);
        for (int i = 1; i <= POINTS / 2; i++) {
            attachAndEnd(target, i * calls / (POINTS / 2));
        }
    }

    private static void runThrough(Target target, String mode, int points) throws Exception {
        target.finish();
        long calls = runToEnd(target, mode, 0, false);
        for (int i = 1; i <= points; i++) {
            long from = i * calls / (points + 1);
            runToEnd(target, mode, from, false);
            if (i % 3 == 0) {
                runToEnd(target, mode, from, true);
            }
        }
    }

    /** The number of allocations that the agent asked for. */
    private static long runToEnd(Target like, String mode, long from, boolean once)
            throws Exception {
        String options = like.agentPath(like.agentOptions(mode));
        try (Target target = start(like, from, once, List.of(options))) {
            return finish(target, "at call " + from + (once ? " only " : " on ") + mode);
        }
    }

    private static long attachAndEnd(Target like, long from) throws Exception {
        List<String> options =
                like.jdk.release >= 21 ? List.of("-XX:+EnableDynamicAgentLoading") : List.of();
        try (Target target = start(like, from, false, options)) {
            target.awaitOutput("ready");
            try {
                target.attach(like.agentOptions(""));
            } catch (AgentInitializationException refused) {
                Check.isTrue(from > 0, "attach without a fault: " + refused);
            }
            return finish(target, "at call " + from + " on, attached");
        }
    }

    private static Target start(Target like, long from, boolean once, List<String> jvm)
            throws Exception {
        String classes = System.getProperty("java.class.path");
        return Target.run(like,
                          List.of("env", "LD_PRELOAD=" + classes + "/libfailingmalloc.so",
                                  "VDK_FAIL_FROM=" + from, "VDK_FAIL_ONCE=" + (once ? 1 : 0),
                                  "VDK_FAIL_COUNT=calls"),
                          jvm);
    }

    private static long finish(Target target, String point) throws Exception {
        try {
            target.finish();
        } catch (java.io.IOException ended) {
            throw new AssertionError("the program ended; " + point + "; " + target.state());
        }
        Check.equal(target.output(), "ready\nbye\n", "standard output, " + point);
        Check.equal(target.errors(), "", "standard error, " + point);
        return Long.parseLong(Files.readString(target.folder.resolve("calls")).trim());
    }
}
