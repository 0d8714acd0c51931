package bench;

import java.lang.management.ManagementFactory;
import java.lang.management.ThreadMXBean;
import java.util.concurrent.CyclicBarrier;

/**
 * {@code LIBRARY threads...}: for each number of threads one line "threads cpu wall cpuclock
 * wallclock": nanoseconds of CPU and of wall time that each thread spends on one call, and of CPU
 * on reading each clock.
 */
public final class TracedCall {
    private static final int WARM_UP = 30_000;
    private static final int CALLS = 1_000_000;
    private static final int READS = 200_000;
    static volatile long sink;

    private TracedCall() {
    }

    static native long readClock(boolean wall, int count);

    static int leaf(int i) {
        int doubled = i * 2;
        return doubled + 1;
    }

    static long caller(int calls) {
        long sum = 0;
        for (int i = 0; i < calls; i++) {
            sum += leaf(i);
        }
        return sum;
    }

    private static void measure(int threads) throws Exception {
        final ThreadMXBean bean = ManagementFactory.getThreadMXBean();
        final CyclicBarrier barrier = new CyclicBarrier(threads);
        final int calls = CALLS / threads;
        final double[] cpu = new double[threads];
        final double[] wall = new double[threads];
        Thread[] workers = new Thread[threads];
        for (int i = 0; i < threads; i++) {
            final int worker = i;
            workers[i] = new Thread(() -> {
                try {
                    barrier.await();
                } catch (Exception e) {
                    throw new IllegalStateException(e);
                }
                long start = System.nanoTime();
                long startCpu = bean.getCurrentThreadCpuTime();
                sink += caller(calls);
                cpu[worker] = (bean.getCurrentThreadCpuTime() - startCpu) / (double) calls;
                wall[worker] = (System.nanoTime() - start) / (double) calls;
            });
            workers[i].start();
        }
        double cpuSum = 0;
        double wallSum = 0;
        for (int i = 0; i < threads; i++) {
            workers[i].join();
            cpuSum += cpu[i];
            wallSum += wall[i];
        }
        System.out.println(threads + " " + cpuSum / threads + " " + wallSum / threads + " " +
                           readClock(false, READS) / (double) READS + " " +
                           readClock(true, READS) / (double) READS);
    }

    public static void main(String[] args) throws Exception {
        System.load(args[0]);
        for (int i = 0; i < 10; i++) {
            sink += caller(WARM_UP);
        }
        for (int i = 1; i < args.length; i++) {
            measure(Integer.parseInt(args[i]));
        }
    }
}
