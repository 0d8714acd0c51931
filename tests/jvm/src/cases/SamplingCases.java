package cases;

import fixtures.Burn;
import fixtures.Bursts;
import fixtures.ShortThreads;
import fixtures.Threads;
import fixtures.VirtualThreads;
import java.nio.file.Path;
import java.util.List;
import java.util.Map;
import java.util.TreeMap;
import java.util.regex.Matcher;
import java.util.regex.Pattern;
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

    @Case(fixture = Burn.class, args = "once", alone = true, attach = false)
    static void chargesMethodsInProportionAndIdleThreadsNothing(Target target) throws Exception {
        Sampling.start(target);
        target.ask("burn", "burnt");
        Tracing.stop(target);
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

    @Case(fixture = Burn.class)
    static void sharesElapsedTimeByWhatThreadsDo(Target target) throws Exception {
        Map<String, Long> times = new TreeMap<>();
        Tool.vdk("sample", "start", target.id(), "--wall");
        Check.await(60, () -> {
            Tables tables = Tracing.fetch(target);
            times.clear();
            tables.forEachCpuRow((thread, frame, ns) -> {
                String method = tables.frameMethod(frame);
                if (method.startsWith(".[")) {
                    times.merge(tables.threadName(thread) + " " + method, ns, Long::sum);
                }
            });
            return times.getOrDefault("burner .[running]", 0L) >= 1_500_000_000L;
        }, () -> "elapsed times: " + times);
        double most = times.values().stream().mapToLong(ns -> ns).max().getAsLong();
        for (String spent : List.of("burner .[running]", "sleeper .[sleeping]", "waiter .[waiting]",
                                    "parked .[parked]", "blocked .[blocked]", "main .[io]")) {
            Check.near(times.getOrDefault(spent, 0L) / most, 1, 0.3, spent + " of " + times);
        }
        Tool.vdk("sample", "stop", target.id());
        Check.contains(Tool.vdkEndsWith(5, "sample", "start", target.id()), "cleared first",
                       "CPU times on top of elapsed ones");
        Check.contains(Tool.vdk("report", target.id(), "--show", "cpu", "--by", "thread"),
                       "Elapsed times by thread", "report");
        Tool.vdk("clear", target.id());
        Sampling.start(target);
        Sampling.awaitTimes(target);
        Tracing.stop(target);
        Check.contains(Tool.vdkEndsWith(5, "sample", "start", target.id(), "--wall"),
                       "cleared first", "elapsed times on top of CPU times");
        target.finish();
    }

    @Case(fixture = Threads.class, args = {"200", "64", "1000"}, alone = true, attach = false)
    static void sees64BusyThreads200FramesDeepAmong1000IdleOnes(Target target) throws Exception {
        Tables tables = Sampling.charge(target, "busy-", 3000, 0.3);
        long deepest = 0;
        for (int frame : tables.rows.get(Tables.FRAME).keySet()) {
            if (frame > 0) {
                deepest = Math.max(deepest, tables.stack(frame).size());
            }
        }
        Check.isTrue(deepest >= 200, "deepest stack " + deepest);
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
            target.ask("go 2", "done 42");
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
        Check.equal(early.rows.get(Tables.THREADFRAME).keySet(),
                    late.rows.get(Tables.THREADFRAME).keySet(), "pairs of thread and frame");
        Check.equal(early.timeByThread(), late.timeByThread(), "time by thread");
        Check.isTrue(late.timeByThread().containsKey("<Oldest finished threads>"),
                     "merged threads in " + late.timeByThread().keySet());
        target.send("stop");
        Check.equal(target.awaitExit(), 0, "exit code");
    }

    @Case(fixture = Burn.class, attach = false)
    static void startsOnceStopsAndClears(Target target) throws Exception {
        Sampling.start(target);
        Tracing.stop(target);
        Sampling.start(target);
        Sampling.awaitTimes(target);
        try (AgentClient client = target.client()) {
            client.request(AgentClient.START_CPU).out.writeLong(4);
            client.string(null);
            client.string(null);
            Check.contains(client.error(), "CPU sampling or CPU tracing already started",
                           "second start");
        }
        Tracing.stop(target);
        Check.isTrue(!Tracing.fetch(target).ownTimes().isEmpty(), "times before clearing");
        Tracing.clear(target);
        Tables cleared = Tracing.fetch(target);
        Check.isTrue(cleared.rows.get(Tables.CPU).isEmpty(), "rows after clearing");
        Check.isTrue(cleared.rows.get(Tables.GENERATIONS_OF_TABLES).containsKey(Tables.CPU),
                     "the clear is told by the generation of the table");
        target.finish();
    }

    /** The first number behind this name in the report on the threads, from a place on. */
    private static long reported(String report, String from, String field) {
        Matcher matcher = Pattern.compile("\"" + field + "\": (\\d+)").matcher(report);
        int at = report.indexOf(from);
        return at >= 0 && matcher.find(at) ? Long.parseLong(matcher.group(1)) : 0;
    }

    private static String reportByThread(String source) throws Exception {
        return Tool.vdk("report", source, "--json", "--by-thread", "--show", "methods");
    }

    /**
     * What a wait or a thread's end takes from the samples is told, and agrees with the system's
     * own count.
     */
    @Case(fixture = Bursts.class, alone = true)
    static void tellsTheTimeThatNoSampleSees(Target target) throws Exception {
        String pid = target.id();
        Sampling.start(target);
        Sampling.awaitTimes(target);
        Tracing.clear(target);
        long before = target.cpuTimeOfThreads("burst-");
        Check.await(() -> target.cpuTimeOfThreads("burst-") - before > 600_000_000, "bursts");
        String report = reportByThread(pid);
        long used = 0;
        long charged = 0;
        for (int i = 0; i < 3; i++) {
            String thread = "\"thread\": \"burst-" + i;
            used += reported(report, thread, "usedCpuNs");
            charged += reported(report, thread, "sampledCpuNs");
        }
        double truth = target.cpuTimeOfThreads("burst-") - before;
        Check.near(used / truth, 1, 0.3, "time of the bursts to the system's count");
        Check.isTrue(charged < 0.8 * used, "of " + used + " ns were charged " + charged);
        Check.near(reported(report, "\"thread\": \"batch", "sampledCpuNs"),
                   reported(report, "\"thread\": \"batch", "usedCpuNs"), 1e8, "who never waits");
        Check.contains(Tool.vdk("report", pid), " CPU; by the stack walker\n", "report");
        Tracing.stop(target);
        Tracing.clear(target);
        Check.equal(reported(reportByThread(pid), "", "usedCpuNs"), 0L, "after clearing");
        countsThreadsThatNoSampleMeets(target, pid);
        target.finish();
    }

    private static void countsThreadsThatNoSampleMeets(Target target, String pid) throws Exception {
        Sampling.start(target);
        target.ask("go", ".");
        Tracing.stop(target);
        String told = target.output().substring(target.output().indexOf("brief ns ") + 9);
        double truth = Long.parseLong(told.substring(0, told.indexOf('.')));
        Path snapshot = target.folder.resolve("brief.snapshot");
        Tool.vdk("snapshot", pid, "--out", snapshot.toString());
        String report = reportByThread(snapshot.toString());
        long inAll = reported(report, "", "usedCpuNs");
        for (String other : List.of("batch", "burst-0", "burst-1", "burst-2", "main")) {
            inAll -= reported(report, "\"thread\": \"" + other + "\"", "usedCpuNs");
        }
        // Threads of the JVM are among the rest; each brief one was there before its start event.
        Check.near(inAll / truth, 1, 0.35, "time of brief threads, " + inAll + " of " + truth);
    }

    /** Carriers are charged with the stacks of what they run, not with the frames that run it. */
    @Case(fixture = VirtualThreads.class, args = "burn", since = 21)
    static void seesTheFramesOfVirtualThreads(Target target) throws Exception {
        String name = VirtualThreads.class.getName() + ".";
        Sampling.start(target);
        Check.await(() -> totalTime(target, name + "steady") > 300_000_000, "steady is charged");
        Check.await(() -> totalTime(target, name + "changing") > 300_000_000, "changing, too");
        Tracing.stop(target);
        Map<String, Long> own = Tracing.fetch(target).ownTimes();
        long all = own.values().stream().mapToLong(Long::longValue).sum();
        Check.isTrue(own.getOrDefault("jdk.internal.vm.Continuation.run", 0L) < all / 3,
                     "Continuation.run has " + own.get("jdk.internal.vm.Continuation.run") +
                             " of " + all);
        target.finish();
    }

    private static long totalTime(Target target, String method) throws Exception {
        return Tracing.fetch(target).totalTimes().getOrDefault(method, 0L);
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
        Tracing.stop(target);
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

    @Case(fixture = Burn.class, attach = false)
    static void theClientSwitchesOnlyWhatItsCommandNames(Target target) throws Exception {
        String pid = target.id();
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

    /** Whoever samples from the start wants to see it at the end. */
    @Case(fixture = Burn.class, agent = "sampling")
    static void startsWithTheOptionSamplingAndKeepsASnapshotOnExit(Target target) throws Exception {
        Sampling.awaitTimes(target);
        target.finish();
        Check.equal(SnapshotCases.count(target, "-shutdown.snapshot"), 1, "snapshots on exit");
    }
}
