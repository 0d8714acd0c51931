package cases;

import fixtures.Fills;
import fixtures.Idle;
import fixtures.Threads;
import fixtures.VirtualCalls;
import fixtures.VirtualThreads;
import java.io.File;
import java.nio.file.Files;
import java.nio.file.Path;
import java.util.ArrayList;
import java.util.List;
import java.util.Map;
import java.util.stream.Collectors;
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
    private ModernJvmCases() {
    }

    /** Telemetry tells the time of day with each record. */
    private static void checkClock(Target target) throws Exception {
        long start = System.currentTimeMillis() / 1000;
        Tables tables = new Tables();
        Check.await(100, () -> {
            try (AgentClient client = target.client()) {
                client.updateTables(1 << Tables.STRING | 1 << Tables.TELE_EXT, tables);
            }
            return tables.extraValue("tele.clock_sec") != null;
        }, () -> "a telemetry record; " + target.state());
        int clock = tables.extraValue("tele.clock_sec");
        long end = System.currentTimeMillis() / 1000;
        Check.isTrue(clock >= start - Check.LIMIT_SECONDS && clock <= end,
                     clock + " is not from " + start + " to " + end);
    }

    @Case(fixture = Threads.class, args = {"5", "1", "1"}, attach = false,
          jvm = {"--limit-modules", "java.base"})
    static void
    profilesAJvmOfNothingButJavaBase(Target target) throws Exception {
        checkClock(target);
        String plain = target.plainOutput("stop\n");
        String telemetry = Tool.vdk("telemetry", target.id(), "--json");
        for (String unknown : List.of("nonHeapUsedKb", "loadedClasses", "gcCount1", "gcTimeMs")) {
            Check.contains(telemetry, "\"" + unknown + "\": null", "without java.management");
        }
        for (String known : List.of("heapUsedKb", "liveThreads", "daemonThreads")) {
            Check.contains(telemetry, "\"" + known + "\": ", "without java.management");
            Check.isTrue(!telemetry.contains("\"" + known + "\": 0") &&
                                 !telemetry.contains("\"" + known + "\": null"),
                         known + " in " + telemetry);
        }
        Sampling.sampleAndCapture(target);
        target.finish();
        Check.equal(target.output(), plain, "output");
    }

    /** Whose clock cannot be read has used an unknown time, not none; the heap is never empty. */
    @Case(fixture = Idle.class, attach = false)
    static void showsNoZeroForWhatIsUnknown(Target target) throws Exception {
        checkClock(target);
        String pid = target.id();
        String threads = Tool.vdk("threads", pid, "--json").replaceAll("\\s+", " ");
        Check.contains(threads.substring(threads.indexOf("\"Reference Handler\"")),
                       "\"nativeId\": null, \"live\": true, \"state\"", "Reference Handler");
        Check.isTrue(!threads.contains("\"cpuNs\": 0,"), threads);
        String telemetry = Tool.vdk("telemetry", pid, "--json");
        Check.isTrue(!telemetry.contains("\"heapUsedKb\": 0,"), telemetry);
        target.finish();
    }

    /**
     * Ahead of main comes nothing of the JDK that generates code or starts services, and the beans
     * of the first record come without the factory that starts all of their providers.
     */
    @Case(fixture = Idle.class, attach = false,
          agent = "builtinprobes=none,disableoomedumper,disabletracing,disablealloc,"
                  + "latetelemetry,telemetryperiod=3000",
          jvm = "-Xlog:class+load:file=classes.log:none")
    static void
    loadsLittleOfTheJdk(Target target) throws Exception {
        checkClock(target);
        String telemetry = Tool.vdk("telemetry", target.id(), "--json");
        for (String known : List.of("heapUsedKb", "nonHeapUsedKb", "loadedClasses")) {
            Check.isTrue(telemetry.matches("(?s).*\"" + known + "\": [1-9].*"), telemetry);
        }
        target.finish();
        String all = Files.readString(target.folder.resolve("classes.log"));
        Check.contains(all, "com.vandrik.runtime.ManagementBeans ", "classes");
        String early = all.substring(0, all.indexOf("\n" + Idle.class.getName() + " "));
        for (String unwanted :
             List.of("java.lang.invoke.LambdaForm$MH", "java.util.ServiceLoader", "sun.management.",
                     "java.lang.management.", "java.net.ServerSocket", "java.util.regex.Pattern ",
                     "jdk.internal.classfile.",
                     "jdk.internal.reflect.UnsafeFieldAccessorFactory")) {
            Check.isTrue(!early.contains("\n" + unwanted), unwanted + " ahead of main");
        }
        String factory = "java.lang.management.ManagementFactory$PlatformMBeanFinder ";
        Check.isTrue(!all.contains(factory), "beans come through their factory");
    }

    /** Telemetry shows how the heap filled, the JVM's own dump with what. */
    @Case(fixture = Fills.class, attach = false, jvm = {"-Xmx24m", "-XX:+UseSerialGC"})
    static void goesOnAfterTheHeapWasFull(Target target) throws Exception {
        target.awaitOutput("ready");
        target.ask("fill", "freed");
        int last = lastTelemetryRow(target);
        Check.await(200,
                    ()
                            -> lastTelemetryRow(target) >= last + 2,
                    () -> "more telemetry; " + target.state());
        Check.isTrue(!target.errors().contains("VDKAgent"), target.errors());
        Path dump = target.folder.resolve("java_pid" + target.pid() + ".hprof");
        Check.await(200,
                    ()
                            -> knownSnapshots(target).equals(dump + " " + 0x1011),
                    () -> "dumps that the agent knows of");
        Check.contains(Tool.vdk("heap", dump.toString(), "histogram", "--no-retained"),
                       "java.lang.Object[]", "the dump");
        target.finish();
    }

    private static String knownSnapshots(Target target) throws Exception {
        Tables tables = new Tables();
        try (AgentClient client = target.client()) {
            client.updateTables(1 << Tables.SNAPSHOT | 1 << Tables.STRING, tables);
        }
        return tables.rows.get(Tables.SNAPSHOT)
                .values()
                .stream()
                .map(row -> tables.rows.get(Tables.STRING).get(row[1])[1] + " " + row[2])
                .collect(Collectors.joining(", "));
    }

    private static int lastTelemetryRow(Target target) throws Exception {
        Tables tables = new Tables();
        try (AgentClient client = target.client()) {
            client.updateTables(1 << Tables.TELE, tables);
        }
        return tables.rows.get(Tables.TELE).isEmpty() ? -1 : tables.rows.get(Tables.TELE).lastKey();
    }

    /** The recorder's start adds read edges to modules while the first classes meet the hook. */
    @Case(fixture = Idle.class, attach = false, jvm = "-XX:StartFlightRecording")
    static void startsBesideAFlightRecording(Target target) throws Exception {
        target.finish();
    }

    @Case(fixture = VirtualThreads.class, args = "many", since = 21)
    static void livesWithThousandsOfVirtualThreads(Target target) throws Exception {
        Sampling.sampleAndCapture(target);
        target.finish();
    }

    /** They and their carriers are left out; the threads of the system are counted as ever. */
    @Case(fixture = VirtualCalls.class, agent = "handlebadtimes", since = 21)
    static void callsOnVirtualThreadsStayUntraced(Target target) throws Exception {
        String plain = target.plainOutput("go\n".repeat(4) + "stop\n");
        Tracing.start(target, "java.*\njdk.*\nsun.*");
        target.ask("go", "done 1");
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
        target.ask("go", "done 4");
        Check.equal(Tracing.fetch(target).callCounts().get(name + ".shared"),
                    (long) VirtualCalls.PLATFORM * VirtualCalls.ROUNDS, "calls of shared anew");
        target.finish();
        Check.equal(target.output(), plain, "output");
    }

    @Case(fixture = Idle.class, noAgent = true, attach = false)
    static void startsWithAnApplicationArchiveThatIsDemanded(Target target) throws Exception {
        target.finish();
        Path archive = target.folder.resolve("app.jsa");
        run(target, "-XX:ArchiveClassesAtExit=" + archive);
        Check.isTrue(archive.toFile().length() > 0, "the archive was made");
        run(target, "-XX:SharedArchiveFile=" + archive, "-Xshare:on", agent(target));
    }

    /** The agent is inert in the run that makes the cache. */
    @Case(fixture = Idle.class, noAgent = true, attach = false, since = 25)
    static void startsWithAnAotCacheThatIsDemandedAndWasMadeBesideIt(Target target)
            throws Exception {
        target.finish();
        Path cache = target.folder.resolve("app.aot");
        run(target, agent(target), "-XX:AOTCacheOutput=" + cache);
        Check.isTrue(cache.toFile().length() > 0, "the cache was made");
        run(target, "-XX:AOTCache=" + cache, "-XX:AOTMode=on", agent(target));
    }

    private static String agent(Target target) {
        return target.agentPath("quiet,onlylocal,tmpdir=" + target.folder);
    }

    private static void run(Target target, String... options) throws Exception {
        // An archive stores classes of jars only.
        String jar = target.folder.resolve("fixtures.jar").toString();
        if (!new File(jar).exists()) {
            Tool.run(List.of(target.jdk.home + "/bin/jar", "cf", jar, "-C",
                             System.getProperty("java.class.path"), "fixtures"));
        }
        List<String> words = new ArrayList<>(List.of(options));
        words.addAll(List.of("-cp", jar));
        try (Target started = Target.run(target, words)) {
            started.awaitOutput("ready\n");
            started.send("stop");
            Check.equal(started.awaitExit(), 0, "exit code with " + words + started.state());
            Check.contains(started.output(), "bye\n", "output with " + words);
        }
    }
}
