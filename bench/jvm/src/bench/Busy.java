package bench;

import java.util.HashMap;
import java.util.Map;

/** Two threads with a fixed amount of mixed work: arithmetic, calls, allocation, maps, text. */
public final class Busy {
    static volatile long sink;

    private Busy() {
    }

    static int fib(int n) {
        return n < 2 ? n : fib(n - 1) + fib(n - 2);
    }

    static long text(int round) {
        StringBuilder all = new StringBuilder();
        for (int i = 0; i < 200; i++) {
            all.append(i * round).append(';');
        }
        return all.toString().hashCode();
    }

    static long maps(int round) {
        Map<Integer, Integer> map = new HashMap<>();
        for (int i = 0; i < 2000; i++) {
            map.merge(i * round & 1023, i, Integer::sum);
        }
        return map.size();
    }

    static void work(int rounds) {
        long sum = 0;
        for (int round = 0; round < rounds; round++) {
            sum += fib(18) + text(round) + maps(round);
        }
        sink = sum;
    }

    public static void main(String[] args) throws Exception {
        final int rounds = Integer.parseInt(args[0]);
        work(500);
        long start = System.nanoTime();
        Thread other = new Thread(() -> work(rounds));
        other.start();
        work(rounds);
        other.join();
        System.out.println("wall_ns " + (System.nanoTime() - start));
    }
}
