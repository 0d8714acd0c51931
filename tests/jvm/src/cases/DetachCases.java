package cases;

import fixtures.Rewritten;
import java.io.File;
import java.io.IOException;
import java.net.ConnectException;
import java.net.InetAddress;
import java.net.Socket;
import java.nio.file.Files;
import jvmtest.AgentClient;
import jvmtest.Case;
import jvmtest.Check;
import jvmtest.Target;
import jvmtest.Tool;
import jvmtest.Tracing;

/** The agent leaves a JVM that goes on, and comes back. */
public final class DetachCases {
    private static final int ROUNDS = 3;

    private final Target target;
    private int asked;

    private DetachCases(Target jvm) {
        target = jvm;
    }

    private void ask(String what) throws Exception {
        asked++;
        target.ask(what + " " + asked, "done " + asked);
    }

    private void vdk(String command) throws Exception {
        Tool.vdk(command.replace("TARGET", ":" + target.port).split(" "));
    }

    /** What is left on when the agent leaves. */
    private void record(int round) throws Exception {
        if (round % 2 == 0) {
            vdk("trace start TARGET");
            vdk("alloc start TARGET --each 1");
            vdk("monitors start TARGET");
            vdk("probes TARGET add FileStreams Sockets");
        } else {
            vdk("sample start TARGET --sampler signal");
            vdk("alloc start TARGET --sampled");
            vdk("exceptions on TARGET");
            vdk("triggers TARGET add GCPauseListener longerThan=1ms AdvanceGeneration");
        }
        ask("go");
    }

    private boolean hasAgentThreads() throws IOException {
        File[] tasks = new File("/proc/" + target.pid() + "/task").listFiles();
        for (File task : tasks) {
            try {
                if (Files.readString(task.toPath().resolve("comm")).startsWith("VDKAgent-")) {
                    return true;
                }
            } catch (IOException e) {
                Check.isTrue(!task.exists(), "reading " + task + ": " + e);
            }
        }
        return false;
    }

    private boolean listens() throws IOException {
        try (Socket socket = new Socket(InetAddress.getLoopbackAddress(), target.port)) {
            return true;
        } catch (ConnectException closed) {
            return false;
        }
    }

    private String carriers() throws Exception {
        ask("carriers");
        String output = target.output();
        int at = output.lastIndexOf("carriers ");
        return output.substring(at, output.indexOf('\n', at));
    }

    /** While another client is connected. */
    private void leave() throws Exception {
        try (AgentClient silent = target.client()) {
            String answer = Tool.vdk("detach", target.id(), "--json").replaceAll("\\s", "");
            Check.contains(answer, "\"notDone\":[]", "detach");
            Check.isTrue(silent.isHungUp(), "the other client has lost its connection");
        }
        Check.isTrue(!listens(), "the port is closed");
        Check.await(20, () -> !hasAgentThreads(), () -> "threads of the agent; " + target.state());
        // Whether they carry calls, another agent is shown as it retransforms them.
        ask("all");
        Check.contains(carriers(), "carriers 0 known 0", "classes that carry calls");
        ask("go");
    }

    /** What is measured is of this stay alone. */
    private void comeBack(String options) throws Exception {
        target.attach(target.agentOptions(options));
        target.awaitPort();
        Tracing.start(target, "");
        Tracing.retransform(target); // for an agent whose classes are rewritten on request
        ask("go");
        Tracing.stop(target);
        TracingCases.checkCounts(Tracing.fetch(target), 1);
        Tracing.clear(target);
    }

    private void leavesAndComesBack(String options) throws Exception {
        ask("look");
        boolean isBusy = target.variant.contains("Serial");
        if (isBusy) {
            ask("load"); // of all cores
        }
        ask("retransform");
        for (int round = 0; round < (isBusy ? 2 : ROUNDS); round++) {
            record(round);
            leave();
            comeBack(options);
        }
        leave();
        Check.contains(Tool.vdkEndsWith(3, "detach", target.id()), "has no agent", "second detach");
        target.finish();
        Check.equal(target.errors().contains("failed "), false, "redefinition by another agent");
    }

    @Case(fixture = Rewritten.class, agent = "ondemand,builtinprobes=none",
          variants = {"-XX:+UseSerialGC", "-Xcheck:jni"},
          jvm = {"-XX:+EnableDynamicAgentLoading", "-Djdk.attach.allowAttachSelf=true"})
    static void
    leavesWhateverRunsAndComesBack(Target jvm) throws Exception {
        new DetachCases(jvm).leavesAndComesBack("ondemand,builtinprobes=none");
    }

    /** Classes carry all calls as they load. */
    @Case(fixture = Rewritten.class, attach = false,
          jvm = {"-XX:+EnableDynamicAgentLoading", "-Djdk.attach.allowAttachSelf=true"})
    static void
    leavesAJvmWhoseClassesWereRewrittenAtLoad(Target jvm) throws Exception {
        new DetachCases(jvm).leavesAndComesBack("builtinprobes=none");
    }
}
