package jvmtest;

/** CPU tracing as the cases drive it, and what always holds of its data. */
public final class Tracing {
    private static final int CPU_TABLES = 1 | 1 << 1 | 1 << 2 | 1 << 3 | 1 << 6 | 1 << 8 | 1 << 9;

    private Tracing() {
    }

    public static void start(Target target, String filters, String wallTime) throws Exception {
        try (AgentClient client = target.client()) {
            client.startTracing(filters, wallTime);
        }
    }

    public static void start(Target target, String filters) throws Exception {
        start(target, filters, "");
    }

    /** Measures the cost of a call now, which the first start would do beside a busy program. */
    public static void calibrate(Target target) throws Exception {
        start(target, "*");
        stop(target);
    }

    public static void stop(Target target) throws Exception {
        try (AgentClient client = target.client()) {
            client.request(AgentClient.STOP_CPU).ok();
        }
    }

    public static void clear(Target target) throws Exception {
        try (AgentClient client = target.client()) {
            client.request(AgentClient.CLEAR_CPU).ok();
        }
    }

    /** Rewrites the classes that were loaded before an attach. */
    public static void retransform(Target target) throws Exception {
        try (AgentClient client = target.client()) {
            client.request(AgentClient.RETRANSFORM);
            client.out.writeByte(0);
            client.string("");
            client.ok();
        }
    }

    public static Tables fetch(Target target) throws Exception {
        Tables tables = new Tables();
        fetchInto(target, tables);
        return tables;
    }

    /** Brings tables up to date by what has changed since they were fetched. */
    public static void fetchInto(Target target, Tables tables) throws Exception {
        try (AgentClient client = target.client()) {
            client.updateTables(CPU_TABLES, tables);
        }
    }

    /** Nothing that a JVM says of its own about the agent stands in the program's output. */
    public static void checkQuiet(Target target) {
        for (String word : new String[] {"WARNING in native method", "FATAL ERROR", "hs_err"}) {
            Check.isTrue(!target.output().contains(word) && !target.errors().contains(word),
                         target.state());
        }
    }
}
