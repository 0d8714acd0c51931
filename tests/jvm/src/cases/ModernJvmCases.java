package cases;

import fixtures.Burn;
import fixtures.Idle;
import fixtures.Threads;
import fixtures.Virtual;
import java.io.File;
import java.nio.file.Path;
import java.util.ArrayList;
import java.util.List;
import java.util.concurrent.TimeUnit;
import jvmtest.AgentClient;
import jvmtest.Case;
import jvmtest.Check;
import jvmtest.Tables;
import jvmtest.Target;

/** What JVMs of today have and older ones had not. */
public final class ModernJvmCases {
    private static final int ALL = 0x7efff;

    private ModernJvmCases() {
    }

    private static void sampleAndSnapshot(Target target) throws Exception {
        try (AgentClient client = target.client()) {
            client.startSampling("", "");
        }
        Thread.sleep(700);
        Tables tables = new Tables();
        try (AgentClient client = target.client()) {
            client.updateTables(ALL, tables);
        }
        Check.isTrue(!tables.ownTimes().isEmpty(), "no CPU times");
        try (AgentClient client = target.client()) {
            client.request(AgentClient.CAPTURE_SNAPSHOT).out.writeLong(0);
            client.string("");
            client.string("");
            client.ok();
        }
        target.finish();
    }

    @Case(fixture = Threads.class, args = {"5", "1", "1"}, attach = false,
          jvm = {"--limit-modules", "java.base"})
    static void
    profilesAJvmOfNothingButJavaBase(Target target) throws Exception {
        sampleAndSnapshot(target);
    }

    @Case(fixture = Burn.class, jvm = "-Xcheck:jni")
    static void passesTheJniChecks(Target target) throws Exception {
        sampleAndSnapshot(target);
        for (String word : new String[] {"WARNING in native method", "FATAL ERROR"}) {
            Check.isTrue(!target.output().contains(word) && !target.errors().contains(word),
                         target.state());
        }
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

    @Case(fixture = Virtual.class, since = 21)
    static void livesWithThousandsOfVirtualThreads(Target target) throws Exception {
        sampleAndSnapshot(target);
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
        run(target, List.of(), List.of("-XX:ArchiveClassesAtExit=" + archive), 0);
        Check.isTrue(archive.toFile().length() > 0, "the archive was made");
        checkRuns(target, List.of("-XX:SharedArchiveFile=" + archive, "-Xshare:on"), List.of());
    }

    @Case(fixture = Idle.class, noAgent = true, attach = false, since = 25)
    static void startsWithAnAotCacheThatIsDemanded(Target target) throws Exception {
        target.finish();
        Path cache = target.folder.resolve("app.aot");
        run(target, List.of(), List.of("-XX:AOTCacheOutput=" + cache), 0);
        Check.isTrue(cache.toFile().length() > 0, "the cache was made");
        checkRuns(target, List.of("-XX:AOTCache=" + cache, "-XX:AOTMode=on"), List.of());
    }

    @Case(fixture = Idle.class, noAgent = true, attach = false, since = 25)
    static void staysInertInATrainingRun(Target target) throws Exception {
        target.finish();
        Path cache = target.folder.resolve("trained.aot");
        run(target, List.of(agent(target)), List.of("-XX:AOTCacheOutput=" + cache), 0);
        Check.isTrue(cache.toFile().length() > 0, "the cache was made with the agent there");
    }

    private static String agent(Target target) {
        return "-agentpath:" + target.library + "=quiet,onlylocal,tmpdir=" + target.folder;
    }

    private static void checkRuns(Target target, List<String> before, List<String> after)
            throws Exception {
        List<String> options = new ArrayList<>(before);
        options.add(agent(target));
        run(target, options, after, 0);
    }

    private static void run(Target target, List<String> first, List<String> then, int code)
            throws Exception {
        List<String> command = new ArrayList<>(List.of(target.jdk.java()));
        command.addAll(first);
        command.addAll(then);
        // An archive stores classes of jars only.
        File jar = jarOfFixtures(target);
        command.addAll(List.of("-cp", jar.getPath(), "fixtures.Idle"));
        Process process = new ProcessBuilder(command)
                                  .directory(target.folder.toFile())
                                  .redirectErrorStream(true)
                                  .start();
        process.getOutputStream().write("stop\n".getBytes());
        process.getOutputStream().flush();
        String output = new String(process.getInputStream().readAllBytes());
        Check.isTrue(process.waitFor(60, TimeUnit.SECONDS), "the program ends");
        Check.equal(process.exitValue(), code, "exit code of " + command + ": " + output);
        Check.contains(output, "ready\n", "output of " + command);
        Check.contains(output, "bye\n", "output of " + command);
    }

    private static File jarOfFixtures(Target target) throws Exception {
        File jar = target.folder.resolve("fixtures.jar").toFile();
        if (!jar.exists()) {
            Process process =
                    new ProcessBuilder(target.jdk.home + "/bin/jar", "cf", jar.getPath(), "-C",
                                       System.getProperty("java.class.path"), "fixtures")
                            .inheritIO()
                            .start();
            Check.equal(process.waitFor(), 0, "jar");
        }
        return jar;
    }
}
