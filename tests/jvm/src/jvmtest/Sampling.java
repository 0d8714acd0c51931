package jvmtest;

import java.util.Map;
import java.util.concurrent.TimeUnit;

/** CPU sampling as the cases drive it. */
public final class Sampling {
    private Sampling() {
    }

    public static void start(Target target) throws Exception {
        try (AgentClient client = target.client()) {
            client.startSampling("", "");
        }
    }

    public static void stop(Target target) throws Exception {
        Tracing.stop(target);
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
        long limit = System.nanoTime() + TimeUnit.SECONDS.toNanos(Check.LIMIT_SECONDS);
        long before = target.cpuTimeOfThreads(threads);
        start(target);
        long first = target.cpuTimeOfThreads(threads);
        long used = 0;
        while (used < cpuMs * 1_000_000 ||
               charged(Tracing.fetch(target), threads) < used * (1 - share)) {
            Check.isTrue(System.nanoTime() < limit,
                         "of " + used + " ns were charged " +
                                 charged(Tracing.fetch(target), threads));
            Thread.sleep(200);
            used = target.cpuTimeOfThreads(threads) - first;
        }
        stop(target);
        Tables tables = Tracing.fetch(target);
        long most = target.cpuTimeOfThreads(threads) - before;
        Check.isTrue(charged(tables, threads) <= most * (1 + share),
                     "of at most " + most + " ns were charged " + charged(tables, threads));
        return tables;
    }

    /** Waits until sampling, which is on, has charged somebody. */
    public static Tables awaitTimes(Target target) throws Exception {
        long limit = System.nanoTime() + TimeUnit.SECONDS.toNanos(Check.LIMIT_SECONDS);
        while (true) {
            Tables tables = Tracing.fetch(target);
            if (!tables.ownTimes().isEmpty()) {
                return tables;
            }
            Check.isTrue(System.nanoTime() < limit, "nobody is charged; " + target.state());
            Thread.sleep(50);
        }
    }
}
