package cases;

import fixtures.Burn;
import fixtures.ShortThreads;
import fixtures.Threads;
import java.util.List;
import java.util.Map;
import jvmtest.AgentClient;
import jvmtest.Case;
import jvmtest.Check;
import jvmtest.Tables;
import jvmtest.Target;

/** CPU sampling: who is charged how much, and what a client is told of it. */
public final class SamplingCases {
    private static final int ALL = 0x7efff;
    private static final int CPU_TABLES = 1 | 1 << 1 | 1 << 2 | 1 << 3 | 1 << 6 | 1 << 8 | 1 << 9;

    private SamplingCases() {
    }

    /**
     * Samples for a while; gives the CPU time that the threads of this prefix really used
     * meanwhile.
     */
    private static long sample(Target target, long ms, String threads) throws Exception {
        try (AgentClient client = target.client()) {
            client.startSampling("", "");
        }
        long before = target.cpuTimeOfThreads(threads);
        Thread.sleep(ms);
        long used = target.cpuTimeOfThreads(threads) - before;
        try (AgentClient client = target.client()) {
            client.request(AgentClient.STOP_CPU).ok();
        }
        return used;
    }

    private static Tables fetch(Target target, int mask) throws Exception {
        Tables tables = new Tables();
        try (AgentClient client = target.client()) {
            client.updateTables(mask, tables);
        }
        return tables;
    }

    @Case(fixture = Burn.class, alone = true)
    static void chargesMethodsInProportionAndIdleThreadsNothing(Target target) throws Exception {
        Thread.sleep(1500);
        long used = sample(target, 10_000, "burner");
        Tables tables = fetch(target, CPU_TABLES);
        Map<String, Long> times = tables.totalTimes();
        double total = 0;
        for (String method : List.of("sixty", "thirty", "ten")) {
            total += times.getOrDefault("fixtures.Burn." + method, 0L);
        }
        String seen = " of " + times.get("fixtures.Burn.sixty") + " " +
                      times.get("fixtures.Burn.thirty") + " " + times.get("fixtures.Burn.ten");
        Check.near(total / used, 1, 0.1, "time charged to the time used");
        Check.near(100 * times.get("fixtures.Burn.sixty") / total, 60, 3,
                   "percent of sixty" + seen);
        Check.near(100 * times.get("fixtures.Burn.thirty") / total, 30, 3,
                   "percent of thirty" + seen);
        Check.near(100 * times.get("fixtures.Burn.ten") / total, 10, 3, "percent of ten" + seen);
        Map<String, Long> threads = tables.timeByThread();
        for (String idle : List.of("sleeper", "waiter", "parked", "blocked")) {
            Check.isTrue(threads.getOrDefault(idle, 0L) < total / 1000,
                         idle + " was charged " + threads.get(idle) + " ns");
        }
        target.finish();
    }

    @Case(fixture = Threads.class, args = {"200", "64", "0"}, alone = true)
    static void sees64BusyThreads200FramesDeep(Target target) throws Exception {
        long used = sample(target, 4000, "busy-");
        Tables tables = fetch(target, CPU_TABLES);
        long deepest = 0;
        for (int frame : tables.rows.get(Tables.FRAME).keySet()) {
            if (frame > 0) {
                deepest = Math.max(deepest, tables.stack(frame).size());
            }
        }
        Check.isTrue(deepest >= 200, "deepest stack " + deepest);
        Map<String, Long> threads = tables.timeByThread();
        long busy = threads.entrySet()
                            .stream()
                            .filter(e -> e.getKey().startsWith("busy-"))
                            .mapToLong(Map.Entry::getValue)
                            .sum();
        Check.near((double) busy / used, 1, 0.3, "time charged to the time used");
        target.finish();
    }

    @Case(fixture = Threads.class, args = {"5", "1", "1000"}, alone = true, attach = false)
    static void keepsUpWith1000IdleThreads(Target target) throws Exception {
        long used = sample(target, 3000, "busy-");
        Map<String, Long> threads = fetch(target, CPU_TABLES).timeByThread();
        long idle = threads.entrySet()
                            .stream()
                            .filter(e -> e.getKey().startsWith("idle-"))
                            .mapToLong(Map.Entry::getValue)
                            .sum();
        Check.equal(idle, 0L, "time of idle threads");
        Check.near((double) threads.get("busy-0") / used, 1, 0.2, "time charged to the time used");
        target.finish();
    }

    @Case(fixture = ShortThreads.class, agent = "deadthreadlimit=10")
    static void tellsALateClientOfDeletionsAndAnEarlyOneOnlyOfChanges(Target target)
            throws Exception {
        Tables early = new Tables();
        try (AgentClient client = target.client()) {
            client.request(AgentClient.SEQUENCE_START);
            client.startSampling("", "");
            client.updateTables(ALL, early);
            int first = early.lastRead;
            client.updateTables(ALL, early);
            Check.isTrue(early.lastRead < first / 2,
                         "second fetch " + early.lastRead + " of " + first);
            target.send("go 40");
            target.awaitOutput("done 40");
            client.request(AgentClient.STOP_CPU).ok();
            target.send("go 2");
            target.awaitOutput("done 42");
            client.updateTables(ALL, early);
            client.request(AgentClient.SEQUENCE_END);
            client.out.flush();
        }
        Tables late = fetch(target, ALL);
        // A last fetch brings the early client the few rows that telemetry made in between.
        try (AgentClient client = target.client()) {
            client.updateTables(ALL, early);
        }
        Check.isTrue(late.lastDeleted > 0, "merged threads leave deleted rows");
        Check.equal(early.rows.get(Tables.THREADFRAME).keySet(),
                    late.rows.get(Tables.THREADFRAME).keySet(), "pairs of thread and frame");
        Check.equal(early.timeByThread(), late.timeByThread(), "time by thread");
        Check.isTrue(late.timeByThread().containsKey("<Oldest finished threads>"),
                     "merged threads in " + late.timeByThread().keySet());
        target.send("stop");
        Check.equal(target.awaitExit(), 0, "exit code");
    }

    @Case(fixture = Burn.class)
    static void startsOnceStopsAndClears(Target target) throws Exception {
        sample(target, 500, "burner");
        try (AgentClient client = target.client()) {
            client.startSampling("", "");
        }
        try (AgentClient client = target.client()) {
            client.request(AgentClient.START_CPU).out.writeLong(4);
            client.string(null);
            client.string(null);
            Check.contains(client.error(), "CPU sampling or CPU tracing already started",
                           "second start");
        }
        try (AgentClient client = target.client()) {
            client.request(AgentClient.STOP_CPU).ok();
        }
        Check.isTrue(!fetch(target, CPU_TABLES).ownTimes().isEmpty(), "times before clearing");
        try (AgentClient client = target.client()) {
            client.request(AgentClient.CLEAR_CPU).ok();
        }
        Tables cleared = fetch(target, CPU_TABLES);
        Check.isTrue(cleared.rows.get(Tables.CPU).isEmpty(), "rows after clearing");
        Check.isTrue(cleared.rows.get(Tables.GENERATIONS_OF_TABLES).containsKey(Tables.CPU),
                     "the clear is told by the generation of the table");
        target.finish();
    }

    @Case(fixture = Burn.class, agent = "sampling", attach = true)
    static void startsWithTheOptionSampling(Target target) throws Exception {
        Thread.sleep(1000);
        Check.isTrue(!fetch(target, CPU_TABLES).ownTimes().isEmpty(), "times without asking");
        target.finish();
    }
}
