package cases;

import fixtures.KnownCalls;
import java.util.HashMap;
import java.util.Map;
import jvmtest.AgentClient;
import jvmtest.Case;
import jvmtest.Check;
import jvmtest.Tables;
import jvmtest.Target;

/** CPU tracing: exact numbers of calls, and times that add up. */
public final class TracingCases {
    private static final int CPU_TABLES = 1 | 1 << 1 | 1 << 2 | 1 << 3 | 1 << 6 | 1 << 8 | 1 << 9;
    private static final String CLASS = "fixtures.KnownCalls.";

    /** Method and number of calls of one run. */
    private static final Object[][] CALLS = {
            {"run", 1L},      {"fib", 1973L + 4 * 15}, {"<init>", 100L}, {"locked", 100L},
            {"hidden", 100L}, {"over", 30L},           {"unwind", 200L}, {"catching", 50L},
            {"after", 100L},  {"deep", 5000L},         {"parse", 40L},   {"onThread", 4L},
    };

    private TracingCases() {
    }

    private static void start(Target target, String filters) throws Exception {
        try (AgentClient client = target.client()) {
            client.startTracing(filters, "");
        }
    }

    private static void stop(Target target) throws Exception {
        try (AgentClient client = target.client()) {
            client.request(AgentClient.STOP_CPU).ok();
        }
    }

    private static Tables fetch(Target target) throws Exception {
        Tables tables = new Tables();
        try (AgentClient client = target.client()) {
            client.updateTables(CPU_TABLES, tables);
        }
        return tables;
    }

    private static void checkCounts(Tables tables, int runs) {
        Map<String, Long> counts = tables.callCounts();
        for (Object[] row : CALLS) {
            Check.equal(counts.getOrDefault(CLASS + row[0], 0L), (Long) row[1] * runs,
                        "calls of " + row[0]);
        }
    }

    /** The time of a frame is never below that of the frames called from it. */
    private static void checkTimes(Tables tables) {
        Map<Long, Long> times = new HashMap<>();
        Map<Long, Long> children = new HashMap<>();
        tables.forEachCpuRow((thread, frame, time) -> {
            times.put((long) thread << 32 | frame, time);
            children.merge((long) thread << 32 | tables.parent(frame), time, Long::sum);
        });
        for (Map.Entry<Long, Long> entry : times.entrySet()) {
            long below = children.getOrDefault(entry.getKey(), 0L);
            Check.isTrue(entry.getValue() >= below,
                         "a frame has " + entry.getValue() + " ns, its children " + below);
        }
    }

    @Case(fixture = KnownCalls.class, attach = false,
          jvm = {"-XX:+UnlockDiagnosticVMOptions", "-XX:+BytecodeVerificationLocal"})
    static void
    countsAreExactOnOffAndOnAgain(Target target) throws Exception {
        target.send("go");
        target.awaitOutput("done 1");
        start(target, "");
        target.send("go");
        target.awaitOutput("done 2");
        Tables tables = fetch(target);
        checkCounts(tables, 1);
        checkTimes(tables);
        stop(target);
        target.send("go");
        target.awaitOutput("done 3");
        checkCounts(fetch(target), 1);
        start(target, "");
        target.send("go");
        target.awaitOutput("done 4");
        stop(target);
        checkCounts(fetch(target), 2);
        target.finish();
    }

    @Case(fixture = KnownCalls.class, load = false)
    static void classesLoadedBeforeAnAttachAreCounted(Target target) throws Exception {
        start(target, "");
        target.send("go");
        target.awaitOutput("done 1");
        checkCounts(fetch(target), 1);
        Check.isTrue(target.log().contains("Class retransform completed"), target.log());
        stop(target);
        target.finish();
    }

    @Case(fixture = KnownCalls.class, attach = false)
    static void methodsOfTheJdkAreCountedAndFilteredOnesCollapse(Target target) throws Exception {
        start(target, "");
        target.send("go");
        target.awaitOutput("done 1");
        Map<String, Long> counts = fetch(target).callCounts();
        Check.equal(counts.getOrDefault("java.lang.StringBuilder.reverse", 0L), 40L, "reverse");
        stop(target);
        try (AgentClient client = target.client()) {
            client.request(AgentClient.CLEAR_CPU).ok();
        }
        start(target, "java.*");
        target.send("go");
        target.awaitOutput("done 2");
        Tables tables = fetch(target);
        checkCounts(tables, 1);
        // A filtered method that a filtered one calls directly has no frame of its own.
        tables.forEachCpuRow((thread, frame, time) -> {
            String method = tables.frameMethod(frame);
            int parent = tables.parent(frame);
            Check.isTrue(parent <= 0 || !method.startsWith("java.") ||
                                 !tables.frameMethod(parent).startsWith("java."),
                         method + " under " + (parent <= 0 ? "" : tables.frameMethod(parent)));
        });
        stop(target);
        target.finish();
    }
}
