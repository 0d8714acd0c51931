package cases;

import com.shop.Checkout;
import com.sun.net.httpserver.HttpServer;
import java.io.IOException;
import java.net.InetAddress;
import java.net.InetSocketAddress;
import java.nio.file.DirectoryStream;
import java.nio.file.Files;
import java.nio.file.Path;
import java.util.ArrayList;
import java.util.LinkedHashMap;
import java.util.List;
import java.util.Map;
import java.util.regex.Matcher;
import java.util.regex.Pattern;
import jvmtest.AgentClient;
import jvmtest.Case;
import jvmtest.Check;
import jvmtest.Tables;
import jvmtest.Target;
import jvmtest.Tool;

/** The recipes of docs/triggers.md, with shorter times and lower thresholds. */
public final class TriggerRecipeCases {
    private static final Pattern RECIPE =
            Pattern.compile("### (.*)\n[^#]*?```triggers\n([^`]*)```");
    private static final long CPU_TIMES = 4;
    private static final String AT_START = "The first half minute";

    private TriggerRecipeCases() {
    }

    /** What a recipe has to bring about. */
    private interface Effect {
        boolean isThere(Target target) throws Exception;
    }

    /** By heading; the last one needs the end of the JVM. */
    private static final Map<String, Effect> EFFECTS = new LinkedHashMap<>();
    static {
        EFFECTS.put(AT_START, t -> has(t, "start*.snapshot") && !measuresCpu(t));
        EFFECTS.put("A heap that stays full", t -> has(t, "heap-high*.snapshot"));
        EFFECTS.put("Generations for a slow leak", t -> hasGeneration(t, "hourly"));
        EFFECTS.put("Arguments of calls that fail", t -> {
            t.ask("pay", "done pay");
            return says(t, "failed-calls.log",
                        "com.shop.Checkout.pay(, -1): java.lang.IllegalArgumentException: no such");
        });
        EFFECTS.put("Rows of calls", t -> {
            t.ask("pay", "done pay");
            String rows = Tool.vdk("table", ":" + t.port, "Method Invocation");
            return rows.contains("book, 3") && rows.contains("30") &&
                    rows.contains("IllegalArgumentException: no such");
        });
        EFFECTS.put("What a busy process does", t -> has(t, "busy*.snapshot") && !measuresCpu(t));
        EFFECTS.put("A line a minute", t -> says(t, "vitals.log", " heap "));
        EFFECTS.put("Stacks when memory runs short",
                    t -> has(t, "short*.hprof") && says(t, "threads.txt", "Checkout.main"));
        EFFECTS.put("Where objects are made, a minute a day", t -> has(t, "allocations*.snapshot"));
        EFFECTS.put("A long pause of the collector, to a chat", t -> {
            t.ask("gc", "done gc");
            return t.log().contains("GCPauseListener, PostWebhook: sent to http");
        });
        EFFECTS.put("Failures that become frequent", t -> {
            t.ask("pay", "done pay");
            return says(t, "failures.log", "times java.lang.IllegalArgumentException") &&
                    has(t, "failures*.snapshot");
        });
        EFFECTS.put("A deadlock", t -> {
            t.ask("deadlock", "done deadlock");
            // The program may be missing on this machine; that is told as well.
            return says(t, "deadlock.txt", "Deadlocks.hold") &&
                    t.log().contains("DeadlockListener, RunCommand: ");
        });
        EFFECTS.put("A report at the end",
                    t -> says(t, "exits.log", "ended after") && has(t, "end*.snapshot"));
    }

    private static boolean has(Target target, String files) throws IOException {
        try (DirectoryStream<Path> found = Files.newDirectoryStream(target.folder, files)) {
            return found.iterator().hasNext();
        }
    }

    private static boolean says(Target target, String file, String text) throws IOException {
        Path path = target.folder.resolve(file);
        return Files.exists(path) && Files.readString(path).contains(text);
    }

    static boolean measuresCpu(Target target) throws IOException {
        try (AgentClient client = target.client()) {
            return (client.request(AgentClient.GET_STATUS).ok().in.readLong() & CPU_TIMES) != 0;
        }
    }

    private static boolean hasGeneration(Target target, String name) throws IOException {
        Tables tables = new Tables();
        try (AgentClient client = target.client()) {
            client.updateTables(1 | 1 << Tables.GENERATION, tables);
        }
        for (Object[] row : tables.rows.get(Tables.GENERATION).values()) {
            for (Object field : row) {
                if (field instanceof Integer && name.equals(tables.text((Integer) field))) {
                    return true;
                }
            }
        }
        return false;
    }

    /** The recipes by heading. */
    private static Map<String, String> readRecipes() throws IOException {
        Map<String, String> recipes = new LinkedHashMap<>();
        Matcher matcher = RECIPE.matcher(
                Files.readString(Path.of(System.getProperty("vdk.docs"), "triggers.md")));
        while (matcher.find()) {
            recipes.put(matcher.group(1), matcher.group(2));
        }
        return recipes;
    }

    /** Each polled event comes at once, and once. */
    private static String shortened(String recipe, String hook) {
        return recipe.replaceAll("=\\d+[smh]\\b", "=200ms")
                .replaceAll("longerThan=\\w+", "longerThan=0ms")
                .replaceAll("moreThan=\\d+", "moreThan=0")
                .replaceAll("url=\\S+", "url=" + hook)
                .replaceAll("(usageThreshold\\w+)=\\d+", "$1=0")
                .replaceAll(" maxTriggerCount=\\d+", "")
                .replaceAll("(?m)^((Timer|\\w+Usage)Listener.*)$", "$1 maxTriggerCount=1");
    }

    private static Path write(Target target, String text) throws IOException {
        return Files.writeString(target.folder.resolve("my.triggers"), text);
    }

    private static Target start(Target like, String recipe) throws Exception {
        Target target = Target.like(like);
        String options =
                "builtinprobes=none,telemetryperiod=100,allowcommands,allowwebhooks,triggers=" +
                write(target, recipe);
        List<String> command = new ArrayList<>(
                List.of(like.jdk.java(), target.agentPath(target.agentOptions(options)), "-cp",
                        System.getProperty("java.class.path"), Checkout.class.getName()));
        target.startProcess(command);
        target.awaitOutput("ready");
        target.awaitPort();
        return target;
    }

    private static void await(Target target, String recipe) throws Exception {
        Effect effect = EFFECTS.get(recipe);
        Check.await(20, () -> effect.isThere(target), () -> recipe + ": " + target.state());
    }

    @Case(fixture = Checkout.class, attach = false, noAgent = true)
    static void everyRecipeOfTheDocsWorks(Target like) throws Exception {
        Map<String, String> recipes = readRecipes();
        Check.equal(recipes.keySet(), EFFECTS.keySet(), "recipes and what they have to do");
        HttpServer server =
                HttpServer.create(new InetSocketAddress(InetAddress.getLoopbackAddress(), 0), 0);
        server.createContext("/", exchange -> {
            exchange.sendResponseHeaders(204, -1);
            exchange.close();
        });
        server.start();
        String hook = "http://127.0.0.1:" + server.getAddress().getPort() + "/";
        try (Target target = start(like, shortened(recipes.get(AT_START), hook))) {
            for (String recipe : EFFECTS.keySet()) {
                Path unchanged = write(target, recipes.get(recipe));
                Tool.run(List.of(System.getProperty("vdk.build") + "/vdk", "triggers", "check",
                                 unchanged.toString()));
                if (!recipe.equals(AT_START)) {
                    Tool.vdk("triggers", ":" + target.port, "set",
                             write(target, shortened(recipes.get(recipe), hook)).toString());
                }
                if (recipe.equals("A report at the end")) {
                    target.finish();
                }
                await(target, recipe);
            }
            Check.isTrue(!target.log().contains("Action failed"), () -> target.log());
            Check.contains(target.errors(), "ended after", "what the last one prints");
        } finally {
            server.stop(0);
        }
    }
}
