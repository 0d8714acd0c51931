package cases;

import com.sun.net.httpserver.HttpServer;
import fixtures.Deadlocks;
import java.net.InetAddress;
import java.net.InetSocketAddress;
import java.net.ServerSocket;
import java.nio.charset.StandardCharsets;
import java.nio.file.DirectoryStream;
import java.nio.file.Files;
import java.nio.file.Path;
import java.util.List;
import java.util.concurrent.BlockingQueue;
import java.util.concurrent.LinkedBlockingQueue;
import java.util.concurrent.TimeUnit;
import jvmtest.Case;
import jvmtest.Check;
import jvmtest.Target;
import jvmtest.Tool;

/** Actions that reach out of the JVM, and listeners that ask it for more than its telemetry. */
public final class TriggerReachCases {
    private TriggerReachCases() {
    }

    private static void set(Target target, String... lines) throws Exception {
        Path file = target.folder.resolve("my.triggers");
        Files.writeString(file, String.join("\n", lines) + "\n");
        Tool.vdk("triggers", ":" + target.port, "set", file.toString());
    }

    private static List<String> linesOf(Target target, String file) throws Exception {
        Path path = target.folder.resolve(file);
        return Files.exists(path) ? Files.readAllLines(path) : List.of();
    }

    private static void awaitLog(Target target, String text) throws Exception {
        Check.await(20, () -> target.log().contains(text), () -> text + " in " + target.state());
    }

    /** What fails is told, and what stands behind it goes on. */
    @Case(fixture = Deadlocks.class, attach = false,
          agent = "builtinprobes=none,telemetryperiod=100,allowcommands,allowwebhooks")
    static void
    faultsOutsideHoldNothingUp(Target target) throws Exception {
        BlockingQueue<String> received = new LinkedBlockingQueue<>();
        HttpServer server =
                HttpServer.create(new InetSocketAddress(InetAddress.getLoopbackAddress(), 0), 0);
        server.createContext("/hook", exchange -> {
            received.add(
                    new String(exchange.getRequestBody().readAllBytes(), StandardCharsets.UTF_8));
            exchange.sendResponseHeaders(received.size() == 1 ? 503 : 204, -1);
            exchange.close();
        });
        server.start();
        String good = "http://127.0.0.1:" + server.getAddress().getPort() + "/hook";
        try (ServerSocket silent = new ServerSocket(0, 50, InetAddress.getLoopbackAddress())) {
            String hanging = "http://127.0.0.1:" + silent.getLocalPort() + "/";
            String toHanging = "  PostWebhook url=" + hanging + " timeLimit=1h\n";
            set(target, "TimerListener delay=50ms maxTriggerCount=1",
                "  RunCommand command=/nonexistent/program",
                "  RunCommand command=printf\\s[%s]\\s${DATE_TIME}\\s$HOME\\s;id",
                "  RunCommand command=sleep\\s1000 maxTime=100ms",
                "  PostWebhook url=" + hanging + " timeLimit=200ms retries=1",
                // One that hangs for an hour, and more than may wait for the server meanwhile.
                toHanging.repeat(101) + "  PostWebhook url=" + good +
                        " message=said\\s\"${THREAD_COUNT}\"",
                "  PrintMessage message=lost output=/dev/full,/proc/none/file,kept.txt",
                "TimerListener delay=50ms", "  PrintMessage message=tick output=ticks.txt");
            awaitLog(target, "line 1, TimerListener, RunCommand: Cannot run program"
                                     + " \"/nonexistent/program\"");
            awaitLog(target, "RunCommand: printf ended with exit code 0\n[");
            awaitLog(target, "][$HOME][;id]");
            awaitLog(target, "RunCommand: sleep was killed after 100ms");
            awaitLog(target, "sent to " + good + " with 204, try 2");
            awaitLog(target, "not sent to " + hanging + " in 2 tries: ");
            awaitLog(target, "PostWebhook: left out: too many of them wait already");
            awaitLog(target, "Cannot write to file /dev/full: No space left");
            awaitLog(target, "Cannot write to file /proc/none/file: ");
            Check.equal(linesOf(target, "kept.txt"), List.of("lost"), "the sink behind them");
            String body = received.poll(1, TimeUnit.SECONDS);
            Check.equal(received.poll(1, TimeUnit.SECONDS), body, "the second try");
            Check.contains(body, "\"message\":\"said \\\"", "what the server gets");
            String messages = Tool.vdk("table", ":" + target.port, "Messages");
            Check.contains(messages, "line 1, TimerListener, RunCommand: Cannot run program",
                           "the table of messages");
            int ticks = linesOf(target, "ticks.txt").size();
            Check.await(20,
                        ()
                                -> linesOf(target, "ticks.txt").size() > ticks + 2,
                        () -> "timers go on: " + target.state());
            target.finish();
        } finally {
            server.stop(0);
        }
    }

    @Case(fixture = Deadlocks.class, agent = "builtinprobes=none,telemetryperiod=100")
    static void collectorsAndDeadlocksAreEvents(Target target) throws Exception {
        Check.contains(Tool.vdkEndsWith(5, "triggers", ":" + target.port, "add", "JVMExitListener",
                                        "RunCommand", "command=id"),
                       "RunCommand: needs the agent's option allowcommands", "what is not allowed");
        set(target, "GCPauseListener longerThan=0ms minimumInterval=1h",
            "  PrintMessage message=paused output=pauses.txt", "GCPauseListener longerThan=1h",
            "  PrintMessage message=long output=pauses.txt", "DeadlockListener interval=50ms",
            "  PrintMessage message=${THREAD_DUMP} output=deadlocks.txt",
            "TimerListener delay=50ms maxTriggerCount=1",
            "  SampleFor duration=200ms fileName=sampled", "TimerListener delay=50ms",
            "  PrintMessage message=tick output=ticks.txt", "RequestListener", "  Empty");
        Check.await(20, () -> linesOf(target, "ticks.txt").size() > 1, () -> target.state());
        for (int i = 0; i < 3; i++) {
            target.ask("gc", "done gc");
            Check.await(20, () -> !linesOf(target, "pauses.txt").isEmpty(), () -> target.state());
        }
        target.ask("deadlock", "done deadlock");
        Check.await(20, () -> !linesOf(target, "deadlocks.txt").isEmpty(), () -> target.state());
        Check.isTrue(Tool.vdk("threads", target.id(), "--now")
                             .matches("(?s).*\nDeadlock: (Thread-\\d+) waits for Thread-\\d+ waits "
                                      + "for \\1\n.*"),
                     "who waits for whom");
        int deadlock = linesOf(target, "deadlocks.txt").size();
        int ticks = linesOf(target, "ticks.txt").size();
        Check.await(20,
                    () -> linesOf(target, "ticks.txt").size() > ticks + 5, () -> target.state());
        Check.equal(linesOf(target, "pauses.txt"), List.of("paused"), "events of the collector");
        Check.equal(linesOf(target, "deadlocks.txt").size(), deadlock, "lines of one deadlock");
        awaitLog(target, "line 7, TimerListener, SampleFor: " + target.folder + "/sampled");
        try (DirectoryStream<Path> found =
                     Files.newDirectoryStream(target.folder, "sampled*.snapshot")) {
            Check.isTrue(found.iterator().hasNext(), "the snapshot of SampleFor");
        }
        Check.isTrue(!TriggerRecipeCases.measuresCpu(target), "what SampleFor began ends");
        awaitLog(target, "RequestListener fires only while the probe Servlets is registered");
        // What somebody began is not ended.
        Tool.vdk("sample", "start", ":" + target.port);
        set(target, "TimerListener delay=50ms maxTriggerCount=1",
            "  SampleFor duration=100ms fileName=other");
        awaitLog(target, ", of a recording that goes on");
        Check.isTrue(TriggerRecipeCases.measuresCpu(target), "sampling goes on");
        target.finish();
    }
}
