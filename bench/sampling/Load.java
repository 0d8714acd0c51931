import java.io.File;
import java.lang.management.ManagementFactory;
import java.lang.management.ThreadMXBean;
import java.lang.ref.WeakReference;
import java.lang.reflect.InvocationHandler;
import java.lang.reflect.Proxy;
import java.net.URL;
import java.net.URLClassLoader;
import java.nio.file.Files;
import java.nio.file.NoSuchFileException;
import java.util.ArrayList;
import java.util.Arrays;
import java.util.HashMap;
import java.util.List;
import java.util.Map;
import java.util.concurrent.CountDownLatch;
import java.util.concurrent.ExecutorService;
import java.util.concurrent.Executors;
import java.util.concurrent.atomic.AtomicLong;
import java.util.concurrent.locks.LockSupport;
import java.util.regex.Pattern;

/**
 * Programs that sampling is tried on, each of another kind. Arguments: name, seconds. Tells at the
 * end the rounds that it made, and the CPU time of its threads by the kernel's clocks, up to the
 * end of each. Exit code 0 when its own results were right all the time.
 */
public final class Load {
    private static volatile Object sink;
    private static volatile boolean over;
    private static final ThreadMXBean CLOCK = ManagementFactory.getThreadMXBean();
    private static final AtomicLong cpuNs = new AtomicLong();
    private static final AtomicLong rounds = new AtomicLong();

    private Load() {
    }

    interface Program {
        void run() throws Exception;
    }

    public static void main(String[] args) throws Exception {
        Map<String, Program> programs = new HashMap<>();
        programs.put("calls", Load::calls);
        programs.put("mixed", Load::mixed);
        programs.put("alloc", Load::alloc);
        programs.put("exceptions", Load::exceptions);
        programs.put("locks", Load::locks);
        programs.put("threads", Load::threads);
        programs.put("classes", Load::classes);
        programs.put("virtual", Load::virtual);
        programs.put("waits", Load::waits);
        programs.put("brief", Load::brief);
        programs.put("many", Load::many);
        programs.put("idle", Load::idle);
        Program program = programs.get(args[0]);
        long end = System.nanoTime() + (long) (Double.parseDouble(args[1]) * 1e9);
        List<Thread> threads = new ArrayList<>();
        List<Throwable> failures = new ArrayList<>();
        for (int i = 0; i < 2; i++) {
            Thread thread = new Thread(() -> {
                try {
                    while (!over) {
                        program.run();
                        rounds.incrementAndGet();
                    }
                    tellCpu();
                } catch (Throwable t) {
                    t.printStackTrace();
                    synchronized (failures) {
                        failures.add(t);
                    }
                }
            }, args[0] + "-" + i);
            threads.add(thread);
            thread.start();
        }
        while (System.nanoTime() < end) {
            Thread.sleep(20);
        }
        over = true;
        for (Thread thread : threads) {
            thread.join();
        }
        System.out.println(args[0] + " done: rounds " + rounds + ", cpu " + cpuNs);
        System.out.println("ended threads: cpu of all " + cpuOfEnded());
        System.exit(failures.isEmpty() ? 0 : 3);
    }

    /**
     * What threads that have ended used by the kernel's clocks, with the JVM's own part at begin
     * and end of each: what the process used, without those that live.
     */
    static long cpuOfEnded() throws Exception {
        long cpuNs =
                ManagementFactory.getPlatformMXBean(com.sun.management.OperatingSystemMXBean.class)
                        .getProcessCpuTime();
        for (File task : new File("/proc/self/task").listFiles()) {
            try {
                String text = Files.readString(task.toPath().resolve("schedstat"));
                cpuNs -= Long.parseLong(text.substring(0, text.indexOf(' ')));
            } catch (NoSuchFileException e) {
                // It has ended since.
            }
        }
        return cpuNs;
    }

    // Calls of small methods, some virtual, some recursive.

    interface Shape {
        double area(int n);
    }

    static final class Square implements Shape {
        public double area(int n) {
            return n * (double) n;
        }
    }

    static final class Circle implements Shape {
        public double area(int n) {
            return Math.PI * n * n;
        }
    }

    static final class Ring implements Shape {
        public double area(int n) {
            return new Circle().area(n) - new Circle().area(n / 2);
        }
    }

    static int fibonacci(int n) {
        return n < 2 ? n : fibonacci(n - 1) + fibonacci(n - 2);
    }

    static int ackermann(int m, int n) {
        return m == 0 ? n + 1
        : n == 0      ? ackermann(m - 1, 1)
                      : ackermann(m - 1, ackermann(m, n - 1));
    }

    static void calls() {
        Shape[] shapes = {new Square(), new Circle(), new Ring()};
        double sum = 0;
        for (int i = 0; i < 200_000; i++) {
            sum += shapes[i % 3].area(i);
        }
        check(fibonacci(24) == 46368 && ackermann(2, 200) == 403 && sum > 0);
    }

    // The JDK's own code.

    static final Pattern WORDS = Pattern.compile("[a-z]+([0-9]+)?");

    static void mixed() {
        Map<String, Integer> counts = new HashMap<>();
        StringBuilder text = new StringBuilder();
        for (int i = 0; i < 3000; i++) {
            text.append("word").append(i % 97).append(' ');
        }
        java.util.regex.Matcher matcher = WORDS.matcher(text);
        while (matcher.find()) {
            counts.merge(matcher.group(), 1, Integer::sum);
        }
        String[] sorted = counts.keySet().toArray(new String[0]);
        Arrays.sort(sorted);
        check(sorted.length == 97);
        check(Arrays.stream(sorted).mapToInt(s -> s.length()).sum() > 97);
        java.math.BigInteger big = java.math.BigInteger.ONE;
        for (int i = 1; i < 200; i++) {
            big = big.multiply(java.math.BigInteger.valueOf(i));
        }
        check(String.format("%s %d %.3f", big.bitLength(), counts.size(), 1.5).length() > 5);
    }

    // Objects small and large, some of which live on.

    static void alloc() {
        List<Object> kept = new ArrayList<>();
        for (int i = 0; i < 20_000; i++) {
            byte[] bytes = new byte[64 + i % 2000];
            bytes[0] = (byte) i;
            if (i % 100 == 0) {
                kept.add(bytes);
                kept.add(new WeakReference<>(bytes));
            }
            sink = new Object[] {bytes, i};
        }
        for (int i = 0; i < kept.size(); i += 2) {
            check(((WeakReference<?>) kept.get(i + 1)).get() == kept.get(i));
        }
    }

    static int failAt(int depth) {
        if (depth == 0) {
            throw new IllegalStateException("at the bottom");
        }
        return failAt(depth - 1) + 1;
    }

    static void exceptions() {
        int caught = 0;
        for (int i = 0; i < 500; i++) {
            try {
                failAt(i % 40);
            } catch (IllegalStateException e) {
                caught += e.getStackTrace().length > 0 ? 1 : 0;
            }
            try {
                Object[] array = new String[1];
                array[0] = i;
            } catch (ArrayStoreException e) {
                caught++;
            }
        }
        check(caught == 1000);
        try {
            sink = deep(1);
        } catch (StackOverflowError e) {
            caught++;
        }
        check(caught == 1001);
    }

    static int deep(int n) {
        return deep(n + 1) + 1;
    }

    static final Object LOCK = new Object();
    static long guarded;

    static void locks() {
        for (int i = 0; i < 2000; i++) {
            synchronized (LOCK) {
                guarded += spin(50);
            }
            if (i % 100 == 0) {
                LockSupport.parkNanos(1000);
            }
        }
    }

    static int spin(int rounds) {
        int value = rounds;
        for (int i = 0; i < rounds; i++) {
            value = value * 31 + i;
        }
        return value;
    }

    static void threads() throws Exception {
        Thread[] started = new Thread[20];
        for (int i = 0; i < started.length; i++) {
            started[i] = new Thread(() -> sink = spin(300_000));
            started[i].start();
        }
        for (Thread thread : started) {
            thread.join();
        }
    }

    // Classes that come and go, and proxies.

    static void classes() throws Exception {
        URL here = Load.class.getProtectionDomain().getCodeSource().getLocation();
        for (int i = 0; i < 5; i++) {
            try (URLClassLoader loader = new URLClassLoader(new URL[] {here}, null)) {
                Class<?> type = loader.loadClass("Load$Loaded");
                Object object = type.getDeclaredConstructor().newInstance();
                int result = (Integer) type.getMethod("work", int.class).invoke(object, 20_000);
                check(result == new Loaded().work(20_000));
            }
            InvocationHandler handler = (proxy, method, arguments) -> null;
            sink = Proxy.newProxyInstance(new ClassLoader(Load.class.getClassLoader()) {},
                                          new Class<?>[] {Runnable.class}, handler);
        }
        if (Math.random() < 0.05) {
            System.gc();
        }
    }

    /** What is loaded again and again. */
    public static final class Loaded {
        public int work(int rounds) {
            int value = 1;
            for (int i = 0; i < rounds; i++) {
                value = step(value, i);
            }
            return value;
        }

        private int step(int value, int i) {
            return value * 31 + i;
        }
    }

    /** Virtual threads where there are any, pooled ones elsewhere. */
    static void virtual() throws Exception {
        ExecutorService executor;
        try {
            executor =
                    (ExecutorService) Executors.class.getMethod("newVirtualThreadPerTaskExecutor")
                            .invoke(null);
        } catch (NoSuchMethodException e) {
            executor = Executors.newFixedThreadPool(8);
        }
        CountDownLatch latch = new CountDownLatch(200);
        for (int i = 0; i < 200; i++) {
            final int n = i;
            executor.execute(() -> {
                sink = spin(20_000 + n);
                LockSupport.parkNanos(100_000);
                sink = fibonacci(15);
                latch.countDown();
            });
        }
        latch.await();
        executor.shutdown();
    }

    static void waits() throws Exception {
        long end = System.nanoTime() + 2_000_000;
        while (System.nanoTime() < end) {
            sink = spin(1000);
        }
        Thread.sleep(8);
    }

    private static void tellCpu() {
        cpuNs.addAndGet(CLOCK.getCurrentThreadCpuTime());
    }

    private static void burn(long ns) {
        long end = CLOCK.getCurrentThreadCpuTime() + ns;
        while (CLOCK.getCurrentThreadCpuTime() < end) {
            sink = spin(200);
        }
    }

    /** Threads that live for a millisecond. */
    static void brief() throws Exception {
        Thread thread = new Thread(() -> {
            burn(1_000_000);
            tellCpu();
        }, "brief");
        thread.start();
        thread.join();
    }

    /** A thousand threads for each of the two, which work for a millisecond now and then. */
    static void many() throws Exception {
        Thread[] started = new Thread[1000];
        for (int i = 0; i < started.length; i++) {
            started[i] = new Thread(null, () -> {
                while (!over) {
                    burn(1_000_000);
                    LockSupport.parkNanos(2_000_000_000);
                }
                tellCpu();
            }, "many", 256 * 1024);
            started[i].start();
        }
        while (!over) {
            Thread.sleep(20);
        }
        for (Thread thread : started) {
            LockSupport.unpark(thread);
            thread.join();
        }
    }

    /** A thousand threads for all that wait. */
    static void idle() throws Exception {
        for (int i = 0; i < 500; i++) {
            Thread thread = new Thread(null, () -> {
                while (!over) {
                    LockSupport.park();
                }
            }, "idle", 256 * 1024);
            thread.setDaemon(true);
            thread.start();
        }
        while (!over) {
            Thread.sleep(20);
        }
    }

    private static void check(boolean isRight) {
        if (!isRight) {
            throw new AssertionError("a wrong result");
        }
    }
}
