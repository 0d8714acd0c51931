package cases;

import fixtures.Burn;
import fixtures.ShortThreads;
import fixtures.Threads;
import java.util.List;
import java.util.Map;
import jvmtest.AgentClient;
import jvmtest.Case;
import jvmtest.Check;
import jvmtest.Sampling;
import jvmtest.Tables;
import jvmtest.Target;
import jvmtest.Tool;
import jvmtest.Tracing;

/** CPU sampling: who is charged how much, and what a client is told of it. */
public final class SamplingCases {
    private static final int ALL = 0x7efff;

    private SamplingCases() {
    }

    @Case(fixture = Burn.class, args = "once", alone = true)
    static void chargesMethodsInProportionAndIdleThreadsNothing(Target target) throws Exception {
        Sampling.start(target);
        target.send("burn");
        target.awaitOutput("burnt\n");
        Sampling.stop(target);
        double used = target.cpuTimeOfThreads("burner");
        Tables tables = Tracing.fetch(target);
        Map<String, Long> times = tables.totalTimes();
        double total = 0;
        for (String method : List.of("sixty", "thirty", "ten")) {
            total += times.getOrDefault("fixtures.Burn." + method, 0L);
        }
        String seen = " of " + times.get("fixtures.Burn.sixty") + " " +
                      times.get("fixtures.Burn.thirty") + " " + times.get("fixtures.Burn.ten");
        Check.near(total / Sampling.charged(tables, "burner"), 1, 0.02, "share of the three");
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
        Tables tables = Sampling.charge(target, "busy-", 6000, 0.3);
        long deepest = 0;
        for (int frame : tables.rows.get(Tables.FRAME).keySet()) {
            if (frame > 0) {
                deepest = Math.max(deepest, tables.stack(frame).size());
            }
        }
        Check.isTrue(deepest >= 200, "deepest stack " + deepest);
        target.finish();
    }

    @Case(fixture = Threads.class, args = {"5", "1", "1000"}, alone = true, attach = false)
    static void keepsUpWith1000IdleThreads(Target target) throws Exception {
        Tables tables = Sampling.charge(target, "busy-", 3000, 0.2);
        Check.equal(Sampling.charged(tables, "idle-"), 0L, "time of idle threads");
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
            for (int made = 10; made <= 40; made += 10) {
                target.send("go 10");
                target.awaitOutput("done " + made + "\n");
                client.request(AgentClient.GET_STATUS).ok(); // no client may be silent for long
                client.in.readLong();
            }
            client.request(AgentClient.STOP_CPU).ok();
            target.send("go 2");
            target.awaitOutput("done 42\n");
            client.updateTables(ALL, early);
            client.request(AgentClient.SEQUENCE_END);
            client.out.flush();
        }
        Tables late = new Tables();
        try (AgentClient client = target.client()) {
            client.updateTables(ALL, late);
        }
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
        Sampling.start(target);
        Sampling.stop(target);
        Sampling.start(target);
        Sampling.awaitTimes(target);
        try (AgentClient client = target.client()) {
            client.request(AgentClient.START_CPU).out.writeLong(4);
            client.string(null);
            client.string(null);
            Check.contains(client.error(), "CPU sampling or CPU tracing already started",
                           "second start");
        }
        Sampling.stop(target);
        Check.isTrue(!Tracing.fetch(target).ownTimes().isEmpty(), "times before clearing");
        Tracing.clear(target);
        Tables cleared = Tracing.fetch(target);
        Check.isTrue(cleared.rows.get(Tables.CPU).isEmpty(), "rows after clearing");
        Check.isTrue(cleared.rows.get(Tables.GENERATIONS_OF_TABLES).containsKey(Tables.CPU),
                     "the clear is told by the generation of the table");
        target.finish();
    }

    private static long status(Target target) throws Exception {
        try (AgentClient client = target.client()) {
            client.request(AgentClient.GET_STATUS).ok();
            return client.in.readLong();
        }
    }

    private static String refusalOf(Target target, long mode) throws Exception {
        try (AgentClient client = target.client()) {
            client.request(AgentClient.START_CPU).out.writeLong(mode);
            client.string("");
            client.string("");
            return client.error();
        }
    }

    /** The first start of tracing measures what a call costs, which needs tracing itself. */
    @Case(fixture = Burn.class)
    static void theFirstTracingLeavesWhatWasSampled(Target target) throws Exception {
        Sampling.start(target);
        Sampling.awaitTimes(target);
        long status = status(target);
        Check.equal(refusalOf(target, 12),
                    "Cannot start CPU tracing: CPU sampling or CPU tracing already started",
                    "first tracing while sampling");
        Check.equal(status(target), status, "status after the refusal");
        Sampling.stop(target);
        refusalOf(target, 8);
        Check.isTrue(!target.log().contains("Calibration: starting"), "measured for nothing");
        Map<String, Long> sampled = Tracing.fetch(target).timeByThread();
        Tracing.start(target, "*");
        Tracing.stop(target);
        Check.contains(target.log(), "Calibration: completed", "log");
        Tables tables = Tracing.fetch(target);
        Check.isTrue(tables.timeByThread().get("burner") >= sampled.get("burner"),
                     "time of burner " + sampled + " before, after " + tables.timeByThread());
        tables.totalTimes().keySet().forEach(
                method -> Check.isTrue(!method.startsWith("com.vandrik."), method + " has a time"));
        target.allowFaultsInLog(); // the mode that is none
        target.finish();
    }

    @Case(fixture = Burn.class)
    static void theClientSwitchesOnlyWhatItsCommandNames(Target target) throws Exception {
        String pid = Long.toString(target.pid());
        Check.contains(Tool.vdkEndsWith(0, "trace", "stop", pid), "tracing was off", "stop");
        Process interrupted = new ProcessBuilder(Tool.vdkCommand("trace", "start", pid))
                                      .redirectErrorStream(true)
                                      .start();
        Check.await(() -> target.log().contains("Calibration: starting"), "the start is under way");
        Tool.run(List.of("kill", "-INT", Long.toString(interrupted.pid())));
        String told = new String(interrupted.getInputStream().readAllBytes());
        Check.equal(interrupted.waitFor(), 130, "exit code of the interrupted start: " + told);
        Check.contains(told, "tracing does not go on", "interrupted start");
        Check.equal(status(target) & 12, 0L, "CPU bits after the interrupted start");
        Tool.vdk("sample", "start", pid);
        for (String verb : List.of("sample start", "trace start", "trace stop")) {
            String[] words = (verb + " " + pid).split(" ");
            Check.contains(Tool.vdkEndsWith(1, words), "CPU sampling is on", verb);
        }
        Check.equal(status(target) & 12, 4L, "CPU bits while sampling");
        Check.contains(Tool.vdkEndsWith(0, "sample", "stop", pid), "sampling stopped", "stop");
        target.finish();
    }

    @Case(fixture = Burn.class, agent = "sampling", attach = true)
    static void startsWithTheOptionSampling(Target target) throws Exception {
        Sampling.awaitTimes(target);
        target.finish();
    }
}
