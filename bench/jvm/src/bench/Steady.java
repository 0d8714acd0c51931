package bench;

import java.lang.management.ManagementFactory;
import java.lang.management.ThreadMXBean;
import java.util.Arrays;

/**
 * {@code PROGRAM ROUNDS}: one of the programs calls, mixed, allocations and exceptions, run until
 * the JVM has nothing left to compile and then for so many rounds; prints the median of the
 * thread's CPU time of a round.
 */
public final class Steady {
    private static final int WARM_UP_ROUNDS = 20;
    private static final long QUIET_NS = 1_500_000_000L;
    private static final long WARM_UP_NS = 60_000_000_000L;
    static volatile long sink;
    static Object kept;

    private Steady() {
    }

    interface Shape {
        int area(int scale);
    }

    static final class Square implements Shape {
        private final int side;

        Square(int side) {
            this.side = side;
        }

        @Override
        public int area(int scale) {
            int scaled = side * scale;
            return scaled * scaled;
        }
    }

    static final class Bar implements Shape {
        private final int length;

        Bar(int length) {
            this.length = length;
        }

        @Override
        public int area(int scale) {
            return Math.abs(length) * scale + clamp(scale);
        }
    }

    static int clamp(int value) {
        return value > 100 ? 100 : value;
    }

    static long calls() {
        Shape[] shapes = {new Square(3), new Bar(4), new Square(5), new Bar(-6)};
        long sum = Busy.fib(30);
        for (int i = 0; i < 20_000_000; i++) {
            sum += shapes[i & 3].area(i) ^ clamp(i);
        }
        return sum;
    }

    static long mixed() {
        long sum = 0;
        for (int round = 0; round < 2500; round++) {
            sum += Busy.fib(12) + Busy.text(round) + Busy.maps(round);
        }
        return sum;
    }

    static final class Node {
        final Node left;
        final Node right;
        int[] values;

        Node(Node left, Node right) {
            this.left = left;
            this.right = right;
            if (left == null) {
                values = new int[4];
            }
        }
    }

    static Node tree(int depth) {
        return depth == 0 ? new Node(null, null) : new Node(tree(depth - 1), tree(depth - 1));
    }

    static long allocations() {
        long sum = 0;
        for (int i = 0; i < 1000; i++) {
            kept = tree(13);
            String[] names = new String[200];
            for (int k = 0; k < names.length; k++) {
                names[k] = new String(new char[] {'n', (char) k});
            }
            sum += Arrays.asList(names).size();
        }
        return sum;
    }

    static int failing(int depth) {
        if (depth == 0) {
            throw new IllegalStateException("expected");
        }
        return failing(depth - 1) + 1;
    }

    static long exceptions() {
        long sum = 0;
        for (int i = 0; i < 60_000; i++) {
            try {
                sum += failing(6);
            } catch (IllegalStateException e) {
                sum += clamp(i);
            }
        }
        return sum;
    }

    static long round(String program) {
        switch (program) {
        case "calls":
            return calls();
        case "mixed":
            return mixed();
        case "allocations":
            return allocations();
        default:
            return exceptions();
        }
    }

    private static void warmUp(String program) {
        long start = System.nanoTime();
        long lastCompiled = start;
        long compileMs = 0;
        for (int i = 0; i < WARM_UP_ROUNDS || System.nanoTime() - lastCompiled < QUIET_NS; i++) {
            sink = round(program);
            long now = ManagementFactory.getCompilationMXBean().getTotalCompilationTime();
            if (now > compileMs + 5) {
                compileMs = now;
                lastCompiled = System.nanoTime();
            }
            if (System.nanoTime() - start > WARM_UP_NS) {
                throw new IllegalStateException("compilation does not come to an end");
            }
        }
    }

    public static void main(String[] args) {
        warmUp(args[0]);
        ThreadMXBean bean = ManagementFactory.getThreadMXBean();
        long[] cpu = new long[Integer.parseInt(args[1])];
        for (int i = 0; i < cpu.length; i++) {
            long start = bean.getCurrentThreadCpuTime();
            sink = round(args[0]);
            cpu[i] = bean.getCurrentThreadCpuTime() - start;
        }
        Arrays.sort(cpu);
        System.out.println("cpu_ns " + cpu[cpu.length / 2]);
    }
}
