package bench;

import java.util.concurrent.CountDownLatch;

/** {@code threads depth seconds}: threads that wait `depth` frames down, for a sampler to walk. */
public final class Stacks {
    private Stacks() {
    }

    static void descend(int frames, CountDownLatch started, Object never)
            throws InterruptedException {
        if (frames > 0) {
            descend(frames - 1, started, never);
            return;
        }
        synchronized (never) {
            started.countDown();
            never.wait();
        }
    }

    public static void main(String[] args) throws Exception {
        final int threads = Integer.parseInt(args[0]);
        final int depth = Integer.parseInt(args[1]);
        final CountDownLatch started = new CountDownLatch(threads);
        final Object never = new Object();
        for (int i = 0; i < threads; i++) {
            Thread thread = new Thread(() -> {
                try {
                    descend(depth, started, never);
                } catch (InterruptedException e) {
                    Thread.currentThread().interrupt();
                }
            });
            thread.setDaemon(true);
            thread.start();
        }
        started.await();
        Thread.sleep(1000);
        long before = samplerTicks();
        Thread.sleep(1000L * Integer.parseInt(args[2]));
        System.out.println("sampler_ms " + (samplerTicks() - before) * 10);
    }

    /**
     * CPU time, in clock ticks of 10 ms, of the sampler's thread and the JVM's, which walks the
     * stacks.
     */
    private static long samplerTicks() throws Exception {
        long ticks = 0;
        java.io.File[] tasks = new java.io.File("/proc/self/task").listFiles();
        for (java.io.File task : tasks) {
            String stat = new String(
                    java.nio.file.Files.readAllBytes(new java.io.File(task, "stat").toPath()));
            String name = stat.substring(stat.indexOf('(') + 1, stat.lastIndexOf(')'));
            if (name.equals("VM Thread") || name.startsWith("bare-sampler") ||
                name.startsWith("VDKAgent-CPUSam")) {
                String[] fields = stat.substring(stat.lastIndexOf(')') + 2).split(" ");
                ticks += Long.parseLong(fields[11]) + Long.parseLong(fields[12]);
            }
        }
        return ticks;
    }
}
