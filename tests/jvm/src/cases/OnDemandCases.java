package cases;

import fixtures.Rewritten;
import jvmtest.AgentClient;
import jvmtest.Case;
import jvmtest.Check;
import jvmtest.Tables;
import jvmtest.Target;
import jvmtest.Tool;
import jvmtest.Tracing;

/** Classes that carry calls only while somebody records. */
public final class OnDemandCases {
    /** One calls the other. */
    private static final Object[][] BITSET_CALLS = {
            {"java.util.BitSet.flip(int)", 60L},
            {"java.util.BitSet.expandTo(int)", 60L},
    };

    private final Target target;
    private int asked;
    private int runs;
    private int fullRuns;

    private OnDemandCases(Target jvm) {
        target = jvm;
    }

    private void ask(String what) throws Exception {
        asked++;
        target.ask(what + " " + asked, "done " + asked);
    }

    /** The answer without its first word. */
    private String carriers() throws Exception {
        ask("carriers");
        String output = target.output();
        int at = output.lastIndexOf("carriers ") + 9;
        return output.substring(at, output.indexOf('\n', at));
    }

    private void awaitNone() throws Exception {
        Check.await(50,
                    ()
                            -> carriers().startsWith("0 "),
                    () -> "calls stay in classes; " + target.state());
    }

    /** One run, and what it was counted as: everything, or the calls of the fixture alone. */
    private void go(boolean everything) throws Exception {
        ask("go");
        runs++;
        fullRuns += everything ? 1 : 0;
        Tables tables = Tracing.fetch(target);
        TracingCases.checkCounts(tables, runs);
        TracingCases.checkCounts(tables, "", TracingCases.JDK_CALLS, fullRuns);
        if (!target.attached) {
            TracingCases.checkCounts(tables, "", TracingCases.NATIVE_CALLS, fullRuns);
        }
        tables.checkTimes();
    }

    /** Prepared by a packet of its own, whose answer tells how far it is. */
    private void startOnly(String patterns) throws Exception {
        try (AgentClient client = target.client()) {
            client.request(AgentClient.PREPARE_RECORDING);
            client.out.writeInt(1);
            client.string(patterns);
            client.string("");
            client.out.flush();
            int type = client.header();
            int done = 0;
            for (; type == AgentClient.CALLS_PROGRESS; type = client.header()) {
                done = client.in.readInt();
                Check.isTrue(done > 0 && done <= client.in.readInt(), "progress");
                client.in.readLong();
            }
            Check.equal(type, 1, "answer");
            Check.isTrue(client.in.readInt() == done && done > 0, "classes");
            Check.isTrue(client.in.readLong() >= client.in.readLong(), "time and longest stop");
        }
        Tracing.start(target, "");
    }

    private String loaded(String condition) throws Exception {
        return Tool.vdk("table", ":" + target.port, "Class Loading", "--where", condition,
                        "--json");
    }

    private long allocated() throws Exception {
        Tool.vdk("alloc", "start", ":" + target.port, "--each", "1");
        ask("go");
        String report = Tool.vdk("report", ":" + target.port, "--show", "allocations", "--json",
                                 "--top", "1000");
        Tool.vdk("alloc", "stop", ":" + target.port);
        return AllocationCases.objects(report, "fixtures.KnownCalls");
    }

    /** While another agent retransforms the same classes all the time. */
    @Case(fixture = Rewritten.class,
          agent = "ondemand,builtinprobes=none,onexit=snapshot,noidlestacks,keepfiltered",
          jvm = {"-XX:+EnableDynamicAgentLoading", "-Djdk.attach.allowAttachSelf=true",
                 "-XX:+UseSerialGC"})
    static void
    callsComeForARecordingAndGoBehindIt(Target jvm) throws Exception {
        OnDemandCases test = new OnDemandCases(jvm);
        test.ask("look");
        test.ask("go");
        Check.equal(test.carriers(), "0 known 0 changed at load 0", "classes that carry calls");
        Check.contains(test.loaded("Class=fixtures.KnownCalls"), "\"method\": \"-\"", "a class");
        Check.contains(test.loaded("method!=-"), "\"matching\": 0,", "stacks of loaded classes");
        Tracing.start(jvm, "");
        Check.contains(test.carriers(), "known 1 changed at load 0", "carriers while tracing");
        test.go(true);
        test.ask("retransform");
        test.go(true);
        Check.isTrue(!test.loaded("method!=-").contains("\"matching\": 0,"), "no stacks");
        Tracing.stop(jvm);
        // The next start comes while they go.
        Check.equal(test.allocated(), 100L, "objects");
        test.awaitNone();
        int rounds = Integer.parseInt(System.getenv().getOrDefault("VDK_ROUNDS", "12"));
        boolean isFull = System.getenv("VDK_FULL") != null;
        if (isFull) {
            test.ask("load");
        }
        for (int i = 0; i < rounds; i++) {
            if (isFull) {
                Tracing.start(jvm, "");
            } else {
                test.startOnly("fixtures.Known*;B");
            }
            test.go(isFull);
            Tracing.stop(jvm);
            if (i % 3 == 0) {
                test.awaitNone();
            }
        }
        test.awaitNone();
        Check.contains(Tool.vdk("trace", "start", ":" + jvm.port, "--only", "fixtures.KnownCalls",
                                "--json"),
                       "\"rewrittenClasses\": 1,", "client");
        Check.contains(test.carriers(), "1 known 1", "carriers of one class");
        Tracing.stop(jvm);
        test.awaitNone();
        // A pattern passes the default filters, for classes that were there before an attach too.
        Tool.vdk("trace", "start", ":" + jvm.port, "--only", "java.util.BitSet");
        test.ask("go");
        TracingCases.checkCounts(Tracing.fetch(jvm), "", BITSET_CALLS, test.fullRuns + 1);
        Tracing.stop(jvm);
        test.awaitNone();
        test.ask("go");
        TracingCases.checkCounts(Tracing.fetch(jvm), test.runs);
        Tracing.start(jvm, "");
        Tracing.stop(jvm); // the JVM ends while calls go, and the other agent goes on
        jvm.finish();
        Check.isTrue(!jvm.errors().contains("failed "), jvm.state());
    }
}
