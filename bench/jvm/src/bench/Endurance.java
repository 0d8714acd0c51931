package bench;

import java.io.InputStream;
import java.lang.invoke.MethodHandle;
import java.lang.invoke.MethodHandles;
import java.lang.invoke.MethodType;
import java.nio.charset.StandardCharsets;
import java.nio.file.Files;
import java.nio.file.Path;

/**
 * What must not grow over days, done fast: {@code Endurance KIND TIMES}, where KIND is threads,
 * texts, throws or classes. After each tenth a line tells the time of one and the resident memory.
 * After "done" it waits for the end of its standard input.
 */
public final class Endurance {
    private interface Work {
        void run(int n) throws Throwable;
    }

    private static final String DESCRIPTION =
            "Queries\n4\nuptime_ns\n1\nuptime_ns.end\n1\nthread\n0\nSQL\n2\n";
    private static int ourSink;

    private Endurance() {
    }

    private static void thread(int n) throws InterruptedException {
        Thread thread = new Thread(() -> ourSink++, "request-" + n);
        thread.start();
        thread.join();
    }

    /** Through the agent's natives, as a probe does it; rows below a second are dropped. */
    private static Work texts() throws Throwable {
        MethodHandles.Lookup lookup = MethodHandles.publicLookup();
        Class<?> agent = Class.forName("com.vandrik.runtime.Callback", true, null);
        Class<?> i = int.class;
        MethodHandle make =
                lookup.findStatic(agent, "createUserTableRow", MethodType.methodType(i, i, i, i));
        MethodHandle set =
                lookup.findStatic(agent, "setUserTableStringColumn",
                                  MethodType.methodType(void.class, i, i, i, String.class));
        MethodHandle close = lookup.findStatic(agent, "closeUserTableRow",
                                               MethodType.methodType(boolean.class, i, i, i));
        int table = (int) lookup
                            .findStatic(agent, "createUserTable",
                                        MethodType.methodType(i, String.class))
                            .invokeExact(DESCRIPTION);
        return n -> {
            int row = (int) make.invokeExact(table, -1, 1000);
            set.invokeExact(table, row, 3, "select name, price from article where id = " + n);
            boolean stays = (boolean) close.invokeExact(table, row, 1000);
            ourSink += stays ? 1 : 0;
        };
    }

    private static final class Thrown extends RuntimeException {
        Thrown() {
            super("", null, false, false);
        }
    }

    private static void fall(int depth, int catcher) {
        if (depth == 0) {
            throw new Thrown();
        }
        if (depth != catcher) {
            fall(depth - 1, catcher);
            return;
        }
        try {
            fall(depth - 1, catcher);
        } catch (Thrown e) {
            ourSink++;
        }
    }

    /**
     * Caught where it is thrown, three calls up, and where only the outermost activation catches.
     */
    private static void caught(int n) {
        int depth = n % 3 == 0 ? 1 : n % 3 == 1 ? 3 : 10;
        fall(depth, depth);
    }

    /** What the classes that come and go are made of. */
    public static class Guest00000000 implements Runnable {
        private int sink;

        private void work() {
            sink++;
        }

        @Override
        public void run() {
            work();
        }
    }

    private static final class Host extends ClassLoader {
        Class<?> define(byte[] bytes) {
            return defineClass(null, bytes, 0, bytes.length);
        }
    }

    private static Work classes() throws Exception {
        String template;
        try (InputStream in =
                     Endurance.class.getResourceAsStream("Endurance$Guest00000000.class")) {
            template = new String(in.readAllBytes(), StandardCharsets.ISO_8859_1);
        }
        return n -> {
            byte[] bytes = template.replace("Guest00000000", String.format("Guest%08d", n))
                                   .getBytes(StandardCharsets.ISO_8859_1);
            ((Runnable) new Host().define(bytes).getConstructor().newInstance()).run();
        };
    }

    private static String residentKb() throws Exception {
        for (String line : Files.readAllLines(Path.of("/proc/self/status"))) {
            if (line.startsWith("VmRSS:")) {
                return line.substring(6).trim();
            }
        }
        return "?";
    }

    private static Work of(String kind) throws Throwable {
        switch (kind) {
        case "threads":
            return Endurance::thread;
        case "texts":
            return texts();
        case "throws":
            return Endurance::caught;
        case "classes":
            return classes();
        default:
            throw new IllegalArgumentException(kind);
        }
    }

    public static void main(String[] args) throws Throwable {
        Work work = of(args[0]);
        int tenth = Integer.parseInt(args[1]) / 10;
        for (int t = 0; t < 10; t++) {
            long start = System.nanoTime();
            for (int n = t * tenth; n < (t + 1) * tenth; n++) {
                work.run(n);
            }
            double us = (System.nanoTime() - start) / 1e3 / tenth;
            System.gc();
            System.out.printf("%9d %s: %.1f us each, %s%n", (t + 1) * tenth, args[0], us,
                              residentKb());
        }
        System.out.println("done");
        while (System.in.read() >= 0) {
            // Until whoever started this has looked at the agent.
        }
    }
}
