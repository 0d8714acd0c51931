package bench;

import java.nio.file.Files;
import java.nio.file.Path;
import java.util.ArrayList;
import java.util.Arrays;
import java.util.LinkedHashMap;
import java.util.List;
import java.util.Map;
import java.util.concurrent.ArrayBlockingQueue;
import java.util.concurrent.locks.LockSupport;
import java.util.concurrent.locks.ReentrantLock;

/**
 * What the recording of waits costs: {@code Locks AGENT BARE CLASSES ROUNDS jdk...} runs programs
 * in turn, plain, with four empty events of monitors, and with the agent, and prints medians of the
 * ratios of what they did in the same time. {@code Locks run} is a program of eight threads that
 * work at four monitors, four locks and a queue; {@code Locks pingpong} one of two threads that do
 * nothing but park and wake each other.
 */
public final class Locks {
    private static final int THREADS = 8;
    private static final int LOCKS = 4;
    private static final long WARM_UP_NS = 2_000_000_000L;
    private static final long MEASURED_NS = 4_000_000_000L;

    private static final Object[] monitors = new Object[LOCKS];
    private static final ReentrantLock[] locks = new ReentrantLock[LOCKS];
    private static final ArrayBlockingQueue<Integer> queue = new ArrayBlockingQueue<>(2);
    private static final long[] done = new long[THREADS * 16]; // apart from each other
    private static volatile int turn;
    static volatile long sink;

    private Locks() {
    }

    private static long burn(long seed, int rounds) {
        long x = seed | 1;
        for (int i = 0; i < rounds; i++) {
            x ^= x << 13;
            x ^= x >>> 7;
            x ^= x << 17;
        }
        return x;
    }

    private static void work(int me) {
        long x = me;
        try {
            for (int i = 0;; i++) {
                x = burn(x, 2000);
                synchronized (monitors[i % LOCKS]) {
                    x = burn(x, 500);
                }
                ReentrantLock lock = locks[(i + me) % LOCKS];
                lock.lock();
                x = burn(x, 500);
                lock.unlock();
                if (i % 64 == 0) {
                    queue.put(i);
                    sink = x + queue.take();
                }
                done[me * 16]++;
            }
        } catch (InterruptedException e) {
            throw new IllegalStateException(e);
        }
    }

    private static void pingPong(Thread[] threads, int me) {
        while (true) {
            while (turn != me) {
                LockSupport.park(threads);
            }
            done[me * 16]++;
            turn = 1 - me;
            LockSupport.unpark(threads[1 - me]);
        }
    }

    private static void program(boolean isPingPong) throws Exception {
        Arrays.setAll(monitors, i -> new Object());
        Arrays.setAll(locks, i -> new ReentrantLock());
        Thread[] threads = new Thread[isPingPong ? 2 : THREADS];
        Arrays.setAll(threads, i -> new Thread(() -> {
                          if (isPingPong) {
                              pingPong(threads, i);
                          } else {
                              work(i);
                          }
                      }));
        for (Thread thread : threads) {
            thread.setDaemon(true);
            thread.start();
        }
        Thread.sleep(WARM_UP_NS / 1_000_000);
        long before = Arrays.stream(done).sum();
        long begin = System.nanoTime();
        Thread.sleep(MEASURED_NS / 1_000_000);
        long operations = Arrays.stream(done).sum() - before;
        System.out.println("operations " + operations * 1e9 / (System.nanoTime() - begin));
    }

    private static double run(String jdk, String classes, String program, String... agent)
            throws Exception {
        List<String> command = new ArrayList<>(List.of(jdk + "/bin/java"));
        command.addAll(Arrays.asList(agent));
        command.addAll(List.of("-cp", classes, "bench.Locks", program));
        Process process = new ProcessBuilder(command).redirectErrorStream(true).start();
        String text = new String(process.getInputStream().readAllBytes()).trim();
        if (process.waitFor() != 0) {
            throw new IllegalStateException(command + ": " + text);
        }
        return Double.parseDouble(text.substring(text.lastIndexOf(' ') + 1));
    }

    private static double median(double[] values) {
        double[] sorted = values.clone();
        Arrays.sort(sorted);
        return sorted[sorted.length / 2];
    }

    private static void compare(String jdk, String classes, String program, int rounds,
                                Map<String, String[]> agents) throws Exception {
        Map<String, double[]> rates = new LinkedHashMap<>();
        agents.keySet().forEach(name -> rates.put(name, new double[rounds]));
        for (int round = 0; round < rounds; round++) {
            for (Map.Entry<String, String[]> each : agents.entrySet()) {
                rates.get(each.getKey())[round] = run(jdk, classes, program, each.getValue());
            }
        }
        double[] plain = rates.get("plain");
        rates.forEach((name, rate) -> {
            double[] ratios = new double[rounds];
            Arrays.setAll(ratios, i -> rate[i] / plain[i]);
            System.out.printf("  %-9s %-28s %.0f operations a second, ratio %.3f%n", program, name,
                              median(rate), median(ratios));
        });
    }

    public static void main(String[] args) throws Exception {
        if (args.length == 1) {
            program(args[0].equals("pingpong"));
            return;
        }
        Path folder = Files.createTempDirectory("vdk-bench-");
        String agent = "-agentpath:" + args[0] +
                       "=quiet,onlylocal,noexceptionevents,builtinprobes=none,tmpdir=" + folder;
        Map<String, String[]> agents = new LinkedHashMap<>();
        agents.put("plain", new String[0]);
        agents.put("four empty events", new String[] {"-agentpath:" + args[1] + "=monitors"});
        agents.put("agent idle", new String[] {agent});
        agents.put("agent, monitors alone", new String[] {agent + ",monitors,noparks"});
        agents.put("agent, monitors and parks", new String[] {agent + ",monitors"});
        for (String jdk : Arrays.asList(args).subList(4, args.length)) {
            System.out.println("Waits at monitors and locks, " + Path.of(jdk).getFileName());
            for (String program : new String[] {"run", "pingpong"}) {
                compare(jdk, args[2], program, Integer.parseInt(args[3]), agents);
            }
        }
    }
}
