package cases;

import com.sun.tools.attach.AgentInitializationException;
import fixtures.Configures;
import fixtures.Idle;
import java.nio.file.Files;
import java.nio.file.Path;
import java.util.ArrayList;
import java.util.List;
import jvmtest.AgentClient;
import jvmtest.Case;
import jvmtest.Check;
import jvmtest.Tables;
import jvmtest.Target;
import jvmtest.Tool;

/** Coming up, refusing to, and leaving the program as it is. */
public final class StartCases {
    private static final String ARCHIVE = "vdk201201261731.jar";

    private StartCases() {
    }

    /**
     * Runs `java -version`-like programs with raw agent options; the exit code is in the target.
     */
    private static Target run(Target like, String options, String... jvm) throws Exception {
        List<String> arguments = new ArrayList<>(List.of(like.agentPath(options)));
        arguments.addAll(List.of(jvm));
        return Target.run(like, arguments);
    }

    @Case(fixture = Idle.class)
    static void leavesOutputAndExitCodeAlone(Target target) throws Exception {
        target.ask("hello", "heard hello");
        target.finish();
        Check.equal(target.output(), target.plainOutput("hello\nstop\n"), "standard output");
        Check.equal(target.errors(), "", "standard error");
        Check.equal(SnapshotCases.count(target, ".snapshot"), 0, "snapshots that nobody asked for");
    }

    /** The JVM waits 0.3 s at its end for threads in native code; the agent's may be none. */
    @Case(fixture = Idle.class, noAgent = true, attach = false)
    static void doesNotHoldUpTheEndOfTheJvm(Target target) throws Exception {
        target.finish();
        String heapDumpPath = "-XX:HeapDumpPath=" + target.folder;
        String options = "quiet,onlylocal,tmpdir=" + target.folder;
        long plainMs = Long.MAX_VALUE;
        long withAgentMs = Long.MAX_VALUE;
        // That wait is part of every end, so the shortest ends tell; a busy machine needs more.
        for (int i = 0; i < 3 || i < 30 && withAgentMs >= plainMs + 200; i++) {
            try (Target plain = Target.run(target, List.of(heapDumpPath));
                 Target profiled = run(target, options, heapDumpPath)) {
                plainMs = Math.min(plainMs, endMs(plain));
                withAgentMs = Math.min(withAgentMs, endMs(profiled));
            }
        }
        Check.isTrue(withAgentMs < plainMs + 200, "the end takes " + withAgentMs +
                                                          " ms with the agent and " + plainMs +
                                                          " ms without");
    }

    private static long endMs(Target target) throws Exception {
        target.awaitOutput("ready");
        // The threads of the agent are at their waits by then.
        Thread.sleep(300);
        long start = System.nanoTime();
        target.finish();
        return (System.nanoTime() - start) / 1000000;
    }

    @Case(fixture = Configures.class, attach = false)
    static void leavesToMainWhatMainConfigures(Target target) throws Exception {
        target.finish();
        Check.contains(target.output(), "manager Manager\n", "log manager");
        Check.contains(target.output(), "locale de_DE\n", "locale");
    }

    @Case(fixture = Idle.class, noAgent = true, attach = false)
    static void refusesWithItsMessageAndExitCode(Target target) throws Exception {
        target.finish();
        String[][] refusals = {
                {"nonsense", "Cannot start: invalid option: nonsense"},
                {"tracing,sampling", "'tracing' cannot be used in combination with 'sampling'"},
                {"port=0", "'port' value is invalid"},
                {"samplingperiod=-1", "sampling period is invalid"},
                {"filters=/x,sampling", "'filters' should be used in combination with 'tracing'"},
                {"help", Tool.PRODUCT + " JVMTI agent usage:"},
        };
        for (String[] refusal : refusals) {
            try (Target refused = run(target, "quiet," + refusal[0])) {
                Check.equal(refused.awaitExit(), 1, "exit code with " + refusal[0]);
                Check.contains(refused.output(), refusal[1], "output with " + refusal[0]);
                Check.isTrue(!refused.output().contains("ready"), "main must not run");
            }
        }
        try (Target refused = run(target, "quiet,tmpdir=" + target.folder + "/missing")) {
            Check.equal(refused.awaitExit(), 1, "exit code without a directory for the archive");
            Check.contains(refused.errors(),
                           "Cannot start: failed to create jar file: ", "archive");
        }
        try (java.net.ServerSocket taken = new java.net.ServerSocket(0)) {
            for (String[] refusal : refusalsOfTheJavaSide(target, taken.getLocalPort())) {
                try (Target refused = run(target, "quiet," + refusal[0])) {
                    Check.equal(refused.awaitExit(), 255, "exit code with " + refusal[0]);
                    checkRefusal(refused, refusal[1]);
                }
            }
        }
    }

    /** Options, and how the refusal begins. */
    private static String[][] refusalsOfTheJavaSide(Target target, int takenPort) throws Exception {
        Path triggers = target.folder.resolve("triggers");
        Files.writeString(triggers, "JVMStartListener\n  X\n");
        return new String[][] {
                {"port=" + takenPort, "Cannot start: cannot listen on port " + takenPort},
                {"listen=no.such.host.invalid:12345", "Cannot start: cannot listen on port 12345"},
                {"triggers=" + triggers, "Cannot start: line 2: unknown action: X; there are: "},
        };
    }

    /** One line on standard error tells it, and so does the log. */
    private static void checkRefusal(Target refused, String begin) {
        // The JVM has its own words about an attach.
        String errors = refused.errors().replaceAll("(?m)^WARNING: .*\n", "");
        Check.isTrue(errors.startsWith(begin), "standard error: " + errors);
        Check.equal(errors.indexOf('\n'), errors.length() - 1, "end of the line of " + errors);
        Check.contains(refused.log(), begin, "log");
    }

    @Case(fixture = Idle.class, noAgent = true, attach = false)
    static void anOptionalAgentThatCannotStartLetsTheProgramRun(Target target) throws Exception {
        target.finish();
        List<String[]> refusals = new ArrayList<>();
        refusals.add(new String[] {"nonsense", "Cannot start: invalid option: nonsense"});
        try (java.net.ServerSocket taken = new java.net.ServerSocket(0)) {
            refusals.addAll(List.of(refusalsOfTheJavaSide(target, taken.getLocalPort())));
            for (String[] refusal : refusals) {
                try (Target refused = run(target, "quiet,optional," + refusal[0])) {
                    refused.awaitOutput("ready");
                    refused.finish();
                    Check.equal(refused.output(), target.output(), "output with " + refusal[0]);
                    checkRefusal(refused, refusal[1]);
                }
            }
        }
    }

    @Case(fixture = Idle.class, load = false)
    static void refusedOrRepeatedAttachLeavesTheJvmAlive(Target target) throws Exception {
        target.attach(target.port > 0 ? "quiet" : "");
        Check.contains(target.log(), "Agent already loaded", "second attach");
        target.finish();
    }

    @Case(fixture = Idle.class, noAgent = true, load = false)
    static void anAttachWithBadOptionsLeavesTheJvmAlive(Target target) throws Exception {
        try {
            target.attach("quiet,nonsense");
            throw new AssertionError("the attach was not refused");
        } catch (AgentInitializationException e) {
            Check.equal(e.returnValue(), 3, "result of the attach");
        }
        target.finish();
        Check.equal(target.output(), "ready\nbye\n", "the program's output");
        checkRefusal(target, "Cannot start: invalid option: nonsense\n");
    }

    /** The first attach gets as far as to replace the JNI functions that create objects. */
    @Case(fixture = Idle.class, noAgent = true, load = false)
    static void anAttachThatFailedLateMayBeTriedAgain(Target target) throws Exception {
        try (java.net.ServerSocket taken = new java.net.ServerSocket(0)) {
            target.attach(target.agentOptions("port=" + taken.getLocalPort()));
            throw new AssertionError("the attach was not refused");
        } catch (AgentInitializationException e) {
            Check.equal(e.returnValue(), 10, "result of the attach");
        }
        target.attach(target.agentOptions(""));
        target.awaitPort();
        try (AgentClient client = target.client()) {
            client.updateTables(0x7efff, new Tables());
        }
        target.ask("hello", "heard hello");
        target.finish();
        Check.contains(target.log(), "vmDeath: OK", "log");
    }

    @Case(fixture = Idle.class, noAgent = true, attach = false)
    static void sharesOneArchiveAndReplacesAWrongOne(Target target) throws Exception {
        target.finish();
        Path archive = target.folder.resolve(ARCHIVE);
        String options = "quiet,onlylocal,tmpdir=" + target.folder;
        try (Target one = run(target, options);
             Target two = run(target, options.replace("quiet,", ""))) {
            one.awaitOutput("ready");
            two.awaitOutput("ready");
            String logs = one.log() + two.log();
            Check.contains(logs, "Jar file created: " + archive, "logs of both");
            // A slow disk may keep the one that writes longer than the other one waits for it.
            if (!logs.contains("Lock of the jar file is not available")) {
                Check.contains(logs, "Reusing existing jar file: " + archive, "logs of both");
            }
            one.finish();
            two.finish();
            Check.equal(one.errors(), "", "standard error under quiet");
            Check.equal(two.errors().split("\n")[0],
                        "[" + Tool.PRODUCT + "] Loaded. Log file: " + two.logFile(), "banner");
        }
        try (Target third = run(target, options)) {
            third.awaitOutput("ready");
            Check.contains(third.log(), "Reusing existing jar file: " + archive, "log of a third");
            third.finish();
        }
        byte[] good = Files.readAllBytes(archive);
        Files.write(archive, java.util.Arrays.copyOf(good, good.length / 2));
        try (Target again = run(target, options)) {
            again.awaitOutput("ready");
            Check.contains(again.log(), "Jar file exists but has wrong size or content: " + archive,
                           "log");
            Check.isTrue(java.util.Arrays.equals(Files.readAllBytes(archive), good),
                         "the archive is whole again");
            again.finish();
        }
    }

    @Case(fixture = Idle.class, agent = "delay=-1", attach = false)
    static void waitsForAnExplicitStartWithDelayMinusOne(Target target) throws Exception {
        // The agent had decided before main began.
        try (AgentClient client = target.client()) {
            throw new AssertionError("the port is bound");
        } catch (java.net.ConnectException e) {
            target.finish();
        }
    }
}
