package cases;

import fixtures.Burn;
import fixtures.Fills;
import fixtures.Idle;
import fixtures.Threads;
import fixtures.Virtual;
import fixtures.VirtualCalls;
import java.io.File;
import java.nio.file.Path;
import java.util.ArrayList;
import java.util.List;
import java.util.Map;
import java.util.concurrent.TimeUnit;
import jvmtest.AgentClient;
import jvmtest.Case;
import jvmtest.Check;
import jvmtest.Sampling;
import jvmtest.Tables;
import jvmtest.Target;
import jvmtest.Tool;
import jvmtest.Tracing;

/** What JVMs of today have and older ones had not. */
public final class ModernJvmCases {
    private static final int ALL = 0x7efff;

    private ModernJvmCases() {
    }

    private static void sampleAndSnapshot(Target target) throws Exception {
        Sampling.start(target);
        Sampling.awaitTimes(target);
        try (AgentClient client = target.client()) {
            client.updateTables(ALL, new Tables());
        }
        try (AgentClient client = target.client()) {
            client.request(AgentClient.CAPTURE_SNAPSHOT).out.writeLong(0);
            client.string("");
            client.string("");
            client.ok();
        }
        target.finish();
    }

    /** Telemetry tells the time of day with each record. */
    private static void checkClock(Target target) throws Exception {
        long start = System.currentTimeMillis() / 1000;
        Tables tables = new Tables();
        Integer clock = null;
        for (int i = 0; i < Check.LIMIT_SECONDS * 10 && clock == null; i++) {
            Thread.sleep(100);
            try (AgentClient client = target.client()) {
                client.updateTables(1 << Tables.STRING | 1 << Tables.TELE_EXT, tables);
            }
            clock = tables.extraValue("tele.clock_sec");
        }
        long end = System.currentTimeMillis() / 1000;
        Check.isTrue(clock != null && clock >= start - Check.LIMIT_SECONDS && clock <= end,
                     clock + " is not from " + start + " to " + end);
    }

    @Case(fixture = Threads.class, args = {"5", "1", "1"}, attach = false,
          jvm = {"--limit-modules", "java.base"})
    static void
    profilesAJvmOfNothingButJavaBase(Target target) throws Exception {
        checkClock(target);
        String plain = target.plainOutput("stop\n");
        String telemetry = Tool.vdk("telemetry", Long.toString(target.pid()), "--json");
        for (String unknown : List.of("nonHeapUsedKb", "loadedClasses", "gcCount1", "gcTimeMs")) {
            Check.contains(telemetry, "\"" + unknown + "\": null", "without java.management");
        }
        for (String known : List.of("heapUsedKb", "liveThreads", "daemonThreads")) {
            Check.contains(telemetry, "\"" + known + "\": ", "without java.management");
            Check.isTrue(!telemetry.contains("\"" + known + "\": 0") &&
                                 !telemetry.contains("\"" + known + "\": null"),
                         known + " in " + telemetry);
        }
        sampleAndSnapshot(target);
        Check.equal(target.output(), plain, "output");
    }

    /** Whose clock cannot be read has used an unknown time, not none; the heap is never empty. */
    @Case(fixture = Idle.class, attach = false)
    static void showsNoZeroForWhatIsUnknown(Target target) throws Exception {
        checkClock(target);
        String pid = Long.toString(target.pid());
        String threads = Tool.vdk("threads", pid, "--json").replaceAll("\\s+", " ");
        Check.contains(threads.substring(threads.indexOf("\"Reference Handler\"")),
                       "\"nativeId\": null, \"live\": true, \"state\"", "Reference Handler");
        Check.isTrue(!threads.contains("\"cpuNs\": 0,"), threads);
        String telemetry = Tool.vdk("telemetry", pid, "--json");
        Check.isTrue(!telemetry.contains("\"heapUsedKb\": 0,"), telemetry);
        target.finish();
    }

    /** Telemetry is what shows how the heap filled: a full one must not end it. */
    @Case(fixture = Fills.class, attach = false, jvm = {"-Xmx24m", "-XX:+UseSerialGC"})
    static void goesOnAfterTheHeapWasFull(Target target) throws Exception {
        target.awaitOutput("ready");
        target.send("fill");
        target.awaitOutput("freed");
        int last = lastTelemetryRow(target);
        long end = System.nanoTime() + TimeUnit.SECONDS.toNanos(Check.LIMIT_SECONDS);
        while (lastTelemetryRow(target) < last + 2) {
            Check.isTrue(System.nanoTime() < end, "no telemetry any more; " + target.state());
            Thread.sleep(200);
        }
        Check.isTrue(!target.errors().contains("VDKAgent"), target.errors());
        target.finish();
    }

    private static int lastTelemetryRow(Target target) throws Exception {
        Tables tables = new Tables();
        try (AgentClient client = target.client()) {
            client.updateTables(1 << Tables.TELE, tables);
        }
        return tables.rows.get(Tables.TELE).isEmpty() ? -1 : tables.rows.get(Tables.TELE).lastKey();
    }

    @Case(fixture = Burn.class, jvm = "-Xcheck:jni")
    static void passesTheJniChecks(Target target) throws Exception {
        sampleAndSnapshot(target);
        Tracing.checkQuiet(target);
    }

    @Case(fixture = Burn.class, jvm = {"-Xint", "-XX:+UseSerialGC"}, attach = false)
    static void worksInterpretedWithSerial(Target target) throws Exception {
        sampleAndSnapshot(target);
    }

    @Case(fixture = Burn.class, jvm = "-XX:+UseParallelGC", attach = false)
    static void worksWithParallel(Target target) throws Exception {
        sampleAndSnapshot(target);
    }

    @Case(fixture = Burn.class, jvm = "-XX:+UseZGC")
    static void worksWithZ(Target target) throws Exception {
        sampleAndSnapshot(target);
    }

    @Case(fixture = Burn.class, jvm = "-XX:+UseShenandoahGC", attach = false)
    static void worksWithShenandoah(Target target) throws Exception {
        sampleAndSnapshot(target);
    }

    /** The recorder's start adds read edges to modules while the first classes meet the hook. */
    @Case(fixture = Idle.class, attach = false, jvm = "-XX:StartFlightRecording")
    static void startsBesideAFlightRecording(Target target) throws Exception {
        target.finish();
    }

    @Case(fixture = Virtual.class, since = 21)
    static void livesWithThousandsOfVirtualThreads(Target target) throws Exception {
        sampleAndSnapshot(target);
    }

    /** They and their carriers are left out; the threads of the system are counted as ever. */
    @Case(fixture = VirtualCalls.class, agent = "handlebadtimes", since = 21)
    static void callsOnVirtualThreadsStayUntraced(Target target) throws Exception {
        String plain = target.plainOutput("go\n".repeat(4) + "stop\n");
        Tracing.start(target, "java.*\njdk.*\nsun.*");
        target.send("go");
        target.awaitOutput("done 1\n");
        Tables tables = Tracing.fetch(target);
        tables.checkTimes();
        String name = VirtualCalls.class.getName();
        Map<String, Long> counts = tables.callCounts();
        Check.equal(counts.get(name + ".onPlatform"), (long) VirtualCalls.PLATFORM, "onPlatform");
        Check.equal(counts.get(name + ".shared"),
                    (long) VirtualCalls.PLATFORM * VirtualCalls.ROUNDS, "calls of shared");
        Check.equal(counts.getOrDefault(name + ".onVirtual", 0L), 0L, "onVirtual");
        Check.equal(tables.callCounts("ForkJoinPool-1-worker-"), Map.of(), "calls of carriers");
        target.send("go\ngo");
        for (int i = 0; i < 4; i++) {
            Tracing.stop(target);
            Tracing.start(target, i % 2 == 0 ? "" : "java.*");
            Tracing.fetch(target).checkTimes();
        }
        target.awaitOutput("done 3\n");
        Tracing.stop(target);
        Tracing.clear(target);
        Tracing.start(target, "");
        target.send("go");
        target.awaitOutput("done 4\n");
        Check.equal(Tracing.fetch(target).callCounts().get(name + ".shared"),
                    (long) VirtualCalls.PLATFORM * VirtualCalls.ROUNDS, "calls of shared anew");
        target.finish();
        Check.equal(target.output(), plain, "output");
    }

    /** A debugger after the agent: the agent holds nothing that the debugger needs. */
    @Case(fixture = Burn.class,
          jvm = "-agentlib:jdwp=transport=dt_socket,server=y,suspend=n,address=127.0.0.1:0")
    static void
    startsBesideADebugger(Target target) throws Exception {
        sampleAndSnapshot(target);
    }

    @Case(fixture = Idle.class, noAgent = true, attach = false)
    static void startsAfterADebuggerNamedFirst(Target target) throws Exception {
        target.finish();
        checkRuns(
                target,
                List.of("-agentlib:jdwp=transport=dt_socket,server=y,suspend=n,address=127.0.0.1:0"),
                List.of());
    }

    @Case(fixture = Idle.class, noAgent = true, attach = false)
    static void startsWithAnApplicationArchiveThatIsDemanded(Target target) throws Exception {
        target.finish();
        Path archive = target.folder.resolve("app.jsa");
        run(target, List.of(), List.of("-XX:ArchiveClassesAtExit=" + archive));
        Check.isTrue(archive.toFile().length() > 0, "the archive was made");
        checkRuns(target, List.of("-XX:SharedArchiveFile=" + archive, "-Xshare:on"), List.of());
    }

    @Case(fixture = Idle.class, noAgent = true, attach = false, since = 25)
    static void startsWithAnAotCacheThatIsDemanded(Target target) throws Exception {
        target.finish();
        Path cache = target.folder.resolve("app.aot");
        run(target, List.of(), List.of("-XX:AOTCacheOutput=" + cache));
        Check.isTrue(cache.toFile().length() > 0, "the cache was made");
        checkRuns(target, List.of("-XX:AOTCache=" + cache, "-XX:AOTMode=on"), List.of());
    }

    @Case(fixture = Idle.class, noAgent = true, attach = false, since = 25)
    static void staysInertInATrainingRun(Target target) throws Exception {
        target.finish();
        Path cache = target.folder.resolve("trained.aot");
        run(target, List.of(agent(target)), List.of("-XX:AOTCacheOutput=" + cache));
        Check.isTrue(cache.toFile().length() > 0, "the cache was made with the agent there");
    }

    private static String agent(Target target) {
        return "-agentpath:" + target.library + "=quiet,onlylocal,tmpdir=" + target.folder;
    }

    private static void checkRuns(Target target, List<String> before, List<String> after)
            throws Exception {
        List<String> options = new ArrayList<>(before);
        options.add(agent(target));
        run(target, options, after);
    }

    private static void run(Target target, List<String> first, List<String> then) throws Exception {
        List<String> command = new ArrayList<>(List.of(target.jdk.java()));
        command.addAll(first);
        command.addAll(then);
        // An archive stores classes of jars only.
        File jar = jarOfFixtures(target);
        command.addAll(List.of("-cp", jar.getPath(), "fixtures.Idle"));
        try (Target started = Target.like(target)) {
            started.startProcess(command);
            started.awaitOutput("ready\n");
            started.send("stop");
            Check.equal(started.awaitExit(), 0, "exit code of " + command + started.state());
            Check.contains(started.output(), "bye\n", "output of " + command);
        }
    }

    private static File jarOfFixtures(Target target) throws Exception {
        File jar = target.folder.resolve("fixtures.jar").toFile();
        if (!jar.exists()) {
            Tool.run(List.of(target.jdk.home + "/bin/jar", "cf", jar.getPath(), "-C",
                             System.getProperty("java.class.path"), "fixtures"));
        }
        return jar;
    }
}
