package jvmtest;

import java.util.Map;

/** CPU sampling as the cases drive it. */
public final class Sampling {
    private Sampling() {
    }

    public static void start(Target target) throws Exception {
        try (AgentClient client = target.client()) {
            client.startSampling("", "");
        }
    }

    /** CPU time charged to the threads whose name begins so, in nanoseconds. */
    public static long charged(Tables tables, String threads) {
        return tables.timeByThread()
                .entrySet()
                .stream()
                .filter(e -> e.getKey().startsWith(threads))
                .mapToLong(Map.Entry::getValue)
                .sum();
    }

    /**
     * Samples while the threads whose name begins so use at least this much CPU time by the
     * system's own count, and until it is charged to them but for a share. What they use before the
     * first sample and after the last is charged to nobody, so this goes on for longer where others
     * keep the sampler waiting.
     */
    public static Tables charge(Target target, String threads, long cpuMs, double share)
            throws Exception {
        long before = target.cpuTimeOfThreads(threads);
        start(target);
        long first = target.cpuTimeOfThreads(threads);
        long[] seen = new long[2];
        Check.await(200, () -> {
            seen[0] = target.cpuTimeOfThreads(threads) - first;
            seen[1] = charged(Tracing.fetch(target), threads);
            return seen[0] >= cpuMs * 1_000_000 && seen[1] >= seen[0] * (1 - share);
        }, () -> "of " + seen[0] + " ns were charged " + seen[1]);
        Tracing.stop(target);
        Tables tables = Tracing.fetch(target);
        long most = target.cpuTimeOfThreads(threads) - before;
        Check.isTrue(charged(tables, threads) <= most * (1 + share),
                     "of at most " + most + " ns were charged " + charged(tables, threads));
        return tables;
    }

    /** Samples until somebody is charged, and takes a snapshot. */
    public static void sampleAndCapture(Target target) throws Exception {
        start(target);
        awaitTimes(target);
        capture(target);
        Tracing.stop(target);
    }

    public static void capture(Target target) throws Exception {
        try (AgentClient client = target.client()) {
            client.capture(0, "", "").ok();
        }
    }

    /** Waits until sampling, which is on, has charged somebody. */
    public static Tables awaitTimes(Target target) throws Exception {
        Tables[] tables = {null};
        Check.await(50, () -> {
            tables[0] = Tracing.fetch(target);
            return !tables[0].ownTimes().isEmpty();
        }, () -> "somebody is charged; " + target.state());
        return tables[0];
    }
}
