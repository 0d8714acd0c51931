package cases;

import fixtures.Watched;
import java.io.BufferedReader;
import java.io.InputStreamReader;
import java.nio.charset.StandardCharsets;
import java.nio.file.Files;
import java.nio.file.Path;
import java.util.ArrayList;
import java.util.List;
import java.util.concurrent.TimeUnit;
import java.util.regex.Matcher;
import java.util.regex.Pattern;
import jvmtest.Case;
import jvmtest.Check;
import jvmtest.Target;
import jvmtest.Tool;

/** What vdk watch, stack and monitor show of a program that knows its calls. */
public final class ClientWatchCases {
    private static final String CART = "fixtures.Watched$Cart";
    private static final Pattern COUNTS = Pattern.compile(
            "\"all\":(true|false).*\"method\":\"pay\",.*?\"calls\":(\\d+),.*?\"errors\":(\\d+),");

    private ClientWatchCases() {
    }

    /** A vdk that follows something; both of its streams are read as one. */
    private static final class Follower implements AutoCloseable {
        private final Process process;
        private final BufferedReader reader;
        private final List<String> lines = new ArrayList<>();

        Follower(String... words) throws Exception {
            process = new ProcessBuilder(Tool.vdkCommand(words)).redirectErrorStream(true).start();
            reader = new BufferedReader(
                    new InputStreamReader(process.getInputStream(), StandardCharsets.UTF_8));
        }

        Follower await(String part) throws Exception {
            String line = "";
            while (!line.contains(part)) {
                line = reader.readLine();
                Check.isTrue(line != null, "vdk ends without " + part + ": " + lines);
                lines.add(line);
            }
            return this;
        }

        void signal(String name) throws Exception {
            Tool.run(List.of("kill", "-" + name, Long.toString(process.pid())));
        }

        /** All of its output, once it has ended well. */
        String end() throws Exception {
            return end(0);
        }

        String end(int code) throws Exception {
            for (String line = reader.readLine(); line != null; line = reader.readLine()) {
                lines.add(line);
            }
            Check.isTrue(process.waitFor(Check.LIMIT_SECONDS, TimeUnit.SECONDS), "vdk ends");
            String all = String.join("\n", lines);
            Check.equal(process.exitValue(), code, "exit code of " + all);
            return all;
        }

        @Override
        public void close() throws Exception {
            process.destroyForcibly().waitFor();
        }
    }

    /** Each round has three calls of add and one of pay, which throws. */
    private static void rounds(Target target, int count) throws Exception {
        for (int i = 0; i < count; i++) {
            int done = count(target.output(), "done ") + 1;
            target.ask("calls", "done " + done);
        }
    }

    private static int count(String text, String part) {
        return text.split(Pattern.quote(part), -1).length - 1;
    }

    private static void endsByItself(Target target) throws Exception {
        try (Follower watch = new Follower("watch", target.id(), CART, "--count", "6", "--where",
                                           "args[0] == 'ink' || exception")) {
            watch.await("watching " + CART + ":*(*) in 1 class;");
            rounds(target, 4);
            String told = watch.end();
            Check.equal(count(told, CART + ".add(\"ink\", 3, RED) => 6  "), 3, told);
            Check.equal(count(told, CART + ".pay(\"4711\") throws fixtures.Watched$ShopException: "
                                            + "refused 4711  "),
                        3, told);
            Check.contains(told, " as wanted, 6 shown (3 threw)", "the sum");
        }
    }

    private static void endsBySignal(Target target) throws Exception {
        try (Follower watch = new Follower("watch", target.id(), CART + ".add", "--result")) {
            watch.await("watching");
            rounds(target, 1);
            watch.await(CART + ".add => 8").signal("INT");
            Check.contains(watch.end(), "3 calls, 3 shown", "the sum");
        }
    }

    private static void hidesWhatMasksName(Target target) throws Exception {
        Path masks = Files.writeString(target.folder.resolve("masks"),
                                       "# cards\n*:pay(*) args[0] exception\n");
        try (Follower watch = new Follower("watch", target.id(), CART + ".pay", "--masks",
                                           masks.toString(), "--json")) {
            watch.await("\"started\"");
            rounds(target, 1);
            watch.await("\"method\":\"pay\"").signal("TERM");
            String told = watch.end();
            Check.contains(told, "\"args\":[\"***\"]", "masked");
            Check.isTrue(!told.contains("4711"), told);
        }
    }

    private static void countsByPeriodAndInAll(Target target) throws Exception {
        try (Follower monitor =
                     new Follower("monitor", target.id(), CART, "--every", "200ms", "--json")) {
            monitor.await("\"all\":false");
            rounds(target, 20);
            monitor.await("\"pay\"").signal("INT");
            long inPeriods = 0;
            String inAll = "";
            for (String line : monitor.end().split("\n")) {
                Matcher matcher = COUNTS.matcher(line);
                if (matcher.find() && matcher.group(1).equals("true")) {
                    inAll = matcher.group(2) + " calls, " + matcher.group(3) + " errors";
                } else if (matcher.reset().find()) {
                    inPeriods += Long.parseLong(matcher.group(2));
                }
            }
            Check.equal(inAll, "20 calls, 20 errors", "in all");
            Check.isTrue(inPeriods > 0 && inPeriods <= 20, inPeriods + " calls in periods");
        }
    }

    private static void showsCallers(Target target) throws Exception {
        try (Follower stack = new Follower("stack", target.id(), CART + ".find", "--count", "2")) {
            stack.await("watching");
            rounds(target, 2);
            String told = stack.end();
            Check.isTrue(told.matches("(?s).*\n2 calls, 100.0%, mean [^\n]*\n"
                                      + " +at fixtures.Watched\\$Cart.find\\(Watched.java:\\d+\\)\n"
                                      + " +at fixtures.Watched.calls\\(Watched.java:\\d+\\)\n.*"),
                         told);
        }
    }

    private static boolean isWatched(Target target) throws Exception {
        return Tool.vdk("probes", target.id()).contains(".Watch");
    }

    /** All in one JVM: the one that was killed is given up meanwhile. */
    @Case(fixture = Watched.class, agent = "builtinprobes=none", attach = false)
    static void callsAreShownAndLetGo(Target target) throws Exception {
        rounds(target, 1); // loads the classes
        try (Follower killed = new Follower("watch", target.id(), CART, "--json")) {
            killed.await("\"started\"").signal("KILL");
        }
        endsByItself(target);
        endsBySignal(target);
        hidesWhatMasksName(target);
        countsByPeriodAndInAll(target);
        showsCallers(target);
        Check.await(() -> !isWatched(target), "nothing is left");
        try (Follower last = new Follower("watch", target.id(), CART + ".add")) {
            last.await("watching");
            target.finish();
            Check.contains(last.end(5), " has ended", "what the last one tells");
        }
    }
}
