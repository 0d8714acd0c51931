package cases;

import fixtures.Started;
import java.net.URI;
import java.net.http.HttpClient;
import java.net.http.HttpRequest;
import java.net.http.HttpRequest.BodyPublishers;
import java.net.http.HttpResponse;
import java.net.http.HttpResponse.BodyHandlers;
import java.nio.file.Files;
import java.nio.file.Path;
import java.time.Duration;
import java.util.ArrayList;
import java.util.List;
import java.util.concurrent.ConcurrentLinkedQueue;
import java.util.concurrent.atomic.AtomicInteger;
import jvmtest.Case;
import jvmtest.Check;
import jvmtest.Tables;
import jvmtest.Target;
import jvmtest.Tracing;

/** A web server under load, traced off and on meanwhile: every answer is the one without. */
public final class ServerCases {
    private static final String FILTERS = "java.*\njdk.*\nsun.*\norg.apache.*";
    private static final String[] PATHS = {
            "load/text?n=50", "load/session?n=1", "load/later?n=7", "load/large?n=20",
            "load/fail?n=3",  "load/missing?n=0", "nothing",        "load/text?n=none"};
    static final String JARS = "tomcat10-{catalina,servlet-api,coyote,juli,util,util-scan,api,"
                               + "jaspic-api,annotations-api,jni,el-api}";
    private static final int CLIENTS = 4;

    private ServerCases() {
    }

    /** One server and what asks it. */
    private static final class Site {
        private final HttpClient client = HttpClient.newHttpClient();
        private final String base;
        private final boolean withLines;

        /** withLines: the answers hold the line numbers of stack traces. */
        Site(Path folder, boolean withLines) throws Exception {
            this.withLines = withLines;
            base = "http://127.0.0.1:" + Files.readString(folder.resolve("server/port")) + "/app/";
        }

        private String ask(HttpRequest.Builder request) throws Exception {
            HttpResponse<String> response =
                    client.send(request.timeout(Duration.ofSeconds(Check.LIMIT_SECONDS)).build(),
                                BodyHandlers.ofString());
            String type = response.headers().firstValue("content-type").orElse("");
            String answer = response.statusCode() + " " + type + "\n" + response.body();
            return withLines ? answer
                             : answer.replaceAll("\\(\\w+.java:\\d+\\)", "(Unknown Source)");
        }

        String get(int path) throws Exception {
            return ask(HttpRequest.newBuilder(URI.create(base + PATHS[path])));
        }

        String post() throws Exception {
            return ask(HttpRequest.newBuilder(URI.create(base + "load/text"))
                               .POST(BodyPublishers.ofString("body ".repeat(5000))));
        }

        List<String> all() throws Exception {
            List<String> answers = new ArrayList<>();
            for (int i = 0; i < PATHS.length; i++) {
                answers.add(get(i));
            }
            answers.add(post());
            return answers;
        }
    }

    /** Clients that go on asking until they are halted, and compare. */
    private static final class Load {
        private final AtomicInteger answered = new AtomicInteger();
        private final ConcurrentLinkedQueue<String> faults = new ConcurrentLinkedQueue<>();
        private final List<Thread> clients = new ArrayList<>();
        private volatile boolean halted;

        Load(Site site, List<String> expected) {
            for (int c = 0; c < CLIENTS; c++) {
                Thread thread = new Thread(() -> run(site, expected));
                thread.start();
                clients.add(thread);
            }
        }

        private void run(Site site, List<String> expected) {
            try {
                while (!halted && faults.isEmpty()) {
                    compare(site.all(), expected);
                    answered.incrementAndGet();
                }
            } catch (Exception | AssertionError e) {
                faults.add(e.toString());
            }
        }

        /** Waits for as many rounds of answers as there are clients. */
        void pass() throws Exception {
            int wanted = answered.get() + CLIENTS;
            Check.await(5, () -> {
                Check.isTrue(faults.isEmpty(), "the server under load: " + faults);
                return answered.get() >= wanted;
            }, () -> "the server answers");
        }

        void halt() throws Exception {
            halted = true;
            for (Thread client : clients) {
                client.join();
            }
            Check.isTrue(faults.isEmpty(), "the server under load: " + faults);
        }
    }

    private static List<String> plainAnswers(Target target) throws Exception {
        Path folder = Files.createDirectory(target.folder.resolve("plain"));
        Process plain = target.startPlain(folder);
        try {
            String line = "";
            while (!line.endsWith("ready\n")) {
                int c = plain.getInputStream().read();
                Check.isTrue(c >= 0, "the plain server starts; output: " + line);
                line += (char) c;
            }
            return new Site(folder, !target.attached).all();
        } finally {
            plain.destroyForcibly().waitFor();
        }
    }

    private static void compare(List<String> answers, List<String> expected) {
        for (int i = 0; i < expected.size(); i++) {
            Check.equal(answers.get(i), expected.get(i), "answer " + i);
        }
    }

    private static void servesTheSame(Target target) throws Exception {
        List<String> expected = plainAnswers(target);
        Check.contains(expected.get(4), "IllegalStateException: cause", "a failing request");
        Tracing.calibrate(target);
        // A trace that is taken before a class is rewritten and printed afterwards has no lines.
        Site site = new Site(target.folder, !target.attached);
        Load load = new Load(site, expected);
        try {
            load.pass();
            Tracing.start(target, FILTERS);
            load.pass();
            Tracing.fetch(target).checkTimes();
            Tracing.stop(target);
            load.pass();
            Tracing.start(target, FILTERS);
            load.pass();
            Tracing.stop(target);
        } finally {
            load.halt();
        }
        Tracing.clear(target);
        Tracing.start(target, FILTERS);
        for (int i = 0; i < 10; i++) {
            compare(site.all(), expected);
        }
        Tables tables = Tracing.fetch(target);
        Check.equal(tables.callCounts().get("programs.LoadServlet.doGet"), 10L * 7, "doGet");
        Check.equal(tables.callCounts().get("programs.LoadServlet.doPost"), 10L, "doPost");
        Check.equal(tables.callCounts().get("programs.LoadServlet.complete"), 10L, "complete");
        tables.checkTimes();
        Tracing.stop(target);
        target.finish();
        Check.equal(target.output(), "ready\nbye\n", "output");
        Tracing.checkQuiet(target);
    }

    @Case(fixture = Started.class, args = "programs.TomcatServer", jars = JARS,
          agent = "handlebadtimes", jvm = {"-XX:+UseSerialGC", "-Xshare:off"}, attach = false)
    static void
    aServerAnswersTheSame(Target target) throws Exception {
        servesTheSame(target);
    }

    @Case(fixture = Started.class, args = "programs.TomcatServer", jars = JARS,
          agent = "handlebadtimes", load = false, since = 25)
    static void
    aServerAnswersTheSameAfterAnAttach(Target target) throws Exception {
        servesTheSame(target);
    }
}
