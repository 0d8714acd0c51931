package cases;

import com.sun.tools.attach.VirtualMachine;
import fixtures.Started;
import fixtures.WovenClasses;
import java.nio.file.Files;
import java.nio.file.Path;
import java.util.Map;
import java.util.TreeMap;
import java.util.jar.Attributes;
import java.util.jar.JarOutputStream;
import java.util.jar.Manifest;
import java.util.regex.Matcher;
import java.util.regex.Pattern;
import jvmtest.Case;
import jvmtest.Check;
import jvmtest.Target;
import jvmtest.Tool;
import jvmtest.Tracing;

/**
 * An application under all built-in probes: rows are what it counted itself, and events get the CPU
 * time that was spent in them.
 */
public final class BuiltInProbeCases {
    private static final String JARS = "tomcat10-{catalina,servlet-api,coyote,juli,util,util-scan,"
                                       + "api,jaspic-api,annotations-api,jni,el-api,dbcp,jdbc}";
    private static final String SLOW = "sql call burn(?)";
    private static final Pattern EVENT = Pattern.compile(
            "\"kind\": \"(\\w+)\",\\s+\"name\": \"(.*)\",\\s+\"count\": (\\d+),\\s+\"timeNs\": (\\d+)");

    private static final String[] THEMES = {"files",   "sockets", "processes", "threads", "events",
                                            "queries", "tests",   "requests",  "orders"};

    private BuiltInProbeCases() {
    }

    private static void compares(Target target, String what) throws Exception {
        target.ask(what, "done " + what);
        Check.isTrue(target.output().contains(what + " equal\n"), () -> target.state());
    }

    /** Kind and name of each event, with its calls and its time. */
    private static Map<String, long[]> events(Target target) throws Exception {
        String report = Tool.vdk("report", target.id(), "--show", "j2ee", "--json");
        Map<String, long[]> events = new TreeMap<>();
        for (Matcher event = EVENT.matcher(report); event.find();) {
            events.put(event.group(1) + " " + event.group(2),
                       new long[] {Long.parseLong(event.group(3)), Long.parseLong(event.group(4))});
        }
        return events;
    }

    /** A statement in a request; the request has its time too. What fails has none. */
    private static void chargesEvents(Target target, String command, String how) throws Exception {
        Tracing.clear(target);
        Path filters = target.folder.resolve("filters");
        Files.writeString(filters, "java.*\njdk.*\nsun.*\norg.apache.*\norg.h2.*\n");
        Tool.vdk(command, "start", target.id(), "--j2ee", "--filter-file", filters.toString());
        target.ask(how, "done " + how);
        Tool.vdk(command, "stop", target.id());
        Map<String, long[]> events = events(target);
        for (String name : new String[] {SLOW, "servlet /slow", "servlet /throw;v=?",
                                         "connect jdbc:h2:mem:", "jndi java:comp/env/jdbc/shop"}) {
            Check.isTrue(events.containsKey(name) && events.get(name)[0] == 1,
                         () -> name + " once of " + events.keySet());
        }
        long query = events.get(SLOW)[1];
        long request = events.get("servlet /slow")[1];
        Check.isTrue(query > 0 && query <= request, query + " ns of " + request + " ns, " + how);
        Check.equal(events.get("servlet /throw;v=?")[1], 0L, "time of what an exception has left");
        String tree = Tool.vdk("report", target.id(), "--show", "tree");
        Check.isTrue(tree.matches("(?s).*\\$Pages.service .*\\n *<servlet> /slow  .*"
                                  + "executeQuery .*\\n *<SQL> call burn\\(\\?\\)  .*"),
                     tree);
    }

    /** By the client: requests with the statements in them, and the connection that leaks. */
    private static void tellsOfOrders(Target target) throws Exception {
        String requests = Tool.vdk("requests", target.id(), "--json").replaceAll("\\s", "");
        Check.isTrue(
                requests.matches(
                        ".*\"uri\":\"/shop/order\",\"count\":6,\"open\":0,[^}]*\"sqlCalls\":12,.*"),
                requests);
        Check.contains(Tool.vdk("sql", target.id(), "--top", "1000"),
                       "6 times on java:comp/env/jdbc/shop", "databases of statements");
        String open = Tool.vdk("table", target.id(), "Connections", "--where", "time=open",
                               "--where", "Database=java:comp/env/jdbc/shop", "--stack");
        Check.contains(open, "programs.Orders.connect", "where it leaks");
    }

    /** The program gets hold of the code that the JVM runs. */
    private static void giveInstrumentation(Target target) throws Exception {
        Manifest manifest = new Manifest();
        Attributes main = manifest.getMainAttributes();
        main.put(Attributes.Name.MANIFEST_VERSION, "1.0");
        main.putValue("Agent-Class", WovenClasses.class.getName());
        main.putValue("Can-Retransform-Classes", "true");
        Path jar = target.folder.resolve("woven.jar");
        new JarOutputStream(Files.newOutputStream(jar), manifest).close();
        VirtualMachine machine = VirtualMachine.attach(target.id());
        machine.loadAgent(jar.toString());
        machine.detach();
    }

    @Case(fixture = Started.class, args = "programs.EventProgram",
          jars = {JARS, "h2", "junit4", "hamcrest", "junit-jupiter-{api,engine}",
                  "junit-platform-{commons,engine,launcher}", "opentest4j"},
          jvm = "-XX:+EnableDynamicAgentLoading", agent = "redact")
    static void
    rowsAreWhatTheProgramDid(Target target) throws Exception {
        target.ask("depth", "done depth");
        for (String theme : THEMES) {
            compares(target, theme);
        }
        tellsOfOrders(target);
        Path slow = target.folder.resolve("slow.txt");
        Tool.vdk("triggers", target.id(), "add", "RequestListener", "urlPattern=/sl*w",
                 "slowerThan=0ms", "PrintMessage", "message=slow", "output=" + slow);
        chargesEvents(target, "sample", "sampled");
        chargesEvents(target, "trace", "traced");
        Check.await(20, () -> Files.exists(slow), () -> "the slow request: " + target.state());
        giveInstrumentation(target);
        compares(target, "unseen");
        target.finish();
    }
}
