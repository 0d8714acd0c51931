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
import jvmtest.AgentClient;
import jvmtest.Case;
import jvmtest.Check;
import jvmtest.Tables;
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
    private static final int SAMPLING = 4;
    private static final int TRACING = 12;
    private static final int J2EE = 32;
    private static final String SLOW = "1 call burn(?)";

    private static final String[] THEMES = {"files",   "sockets", "processes", "threads", "events",
                                            "queries", "tests",   "requests",  "orders"};

    private BuiltInProbeCases() {
    }

    private static void compares(Target target, String what) throws Exception {
        target.ask(what, "done " + what);
        Check.isTrue(target.output().contains(what + " equal\n"), () -> target.state());
    }

    /** "type name" with its calls and its time, of the row with the most time. */
    private static Map<String, long[]> events(Target target) throws Exception {
        Tables tables = new Tables();
        try (AgentClient client = target.client()) {
            client.updateTables(1 | 1 << Tables.J2EE, tables);
        }
        Map<String, long[]> events = new TreeMap<>();
        for (Object[] row : tables.rows.get(Tables.J2EE).values()) {
            long[] event = events.computeIfAbsent(row[4] + " " + tables.text((Integer) row[3]),
                                                  key -> new long[2]);
            event[0] = Math.max(event[0], (Long) row[6]);
            event[1] = Math.max(event[1], (Long) row[5]);
        }
        return events;
    }

    /** A statement in a request; the request has its time too. What fails has none. */
    private static void chargesEvents(Target target, String how, int mode) throws Exception {
        Tracing.clear(target);
        try (AgentClient client = target.client()) {
            client.startCPU(mode | J2EE, "java.*\njdk.*\nsun.*\norg.apache.*\norg.h2.*", "");
        }
        target.ask(how, "done " + how);
        Tracing.stop(target);
        Map<String, long[]> events = events(target);
        long[] query = events.get(SLOW);
        long[] request = events.get("4 /slow");
        long[] failed = events.get("4 /throw");
        Check.isTrue(query != null && request != null && failed != null,
                     () -> events.keySet() + "");
        Check.equal(query[0] + " " + request[0] + " " + failed[0], "1 1 1", "events");
        Check.isTrue(query[1] > 0 && query[1] <= request[1],
                     query[1] + " ns of " + request[1] + " ns, " + how);
        Check.equal(failed[1], 0L, "time of what an exception has left");
        Check.isTrue(events.containsKey("2 jdbc:h2:mem:"), () -> events.keySet() + "");
    }

    /** By the client: requests with the statements in them, and the connection that leaks. */
    private static void tellsOfOrders(Target target) throws Exception {
        String requests = Tool.vdk("requests", target.id(), "--json").replaceAll("\\s", "");
        Check.isTrue(
                requests.matches(
                        ".*\"uri\":\"/shop/order\",\"count\":6,\"open\":0,[^}]*\"sqlCalls\":12,.*"),
                requests);
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
        for (String theme : THEMES) {
            compares(target, theme);
        }
        tellsOfOrders(target);
        chargesEvents(target, "sampled", SAMPLING);
        chargesEvents(target, "traced", TRACING);
        giveInstrumentation(target);
        compares(target, "unseen");
        target.finish();
    }
}
