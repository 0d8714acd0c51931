package jvmtest;

import java.lang.reflect.InvocationTargetException;
import java.lang.reflect.Method;
import java.util.ArrayList;
import java.util.Comparator;
import java.util.List;
import java.util.concurrent.ExecutorService;
import java.util.concurrent.Executors;
import java.util.concurrent.TimeUnit;
import java.util.concurrent.atomic.AtomicInteger;

/**
 * Runs the cases of {@link Suites} on every JDK given: {@code Main BUILD release=home... --
 * filter...}. Cases run two at a time, those that measure CPU shares alone. Ends with one line of
 * counts.
 */
public final class Main {
    private final String library;
    private final AtomicInteger passed = new AtomicInteger();
    private final AtomicInteger failed = new AtomicInteger();

    private Main(String library) {
        this.library = library;
    }

    public static void main(String[] args) throws Exception {
        List<Jdk> jdks = new ArrayList<>();
        List<String> filters = new ArrayList<>();
        int at = 1;
        for (; at < args.length && !args[at].equals("--"); at++) {
            int sign = args[at].indexOf('=');
            jdks.add(new Jdk(Integer.parseInt(args[at].substring(0, sign)),
                             args[at].substring(sign + 1)));
        }
        for (at++; at < args.length; at++) {
            filters.add(args[at]);
        }
        jdks.sort(Comparator.comparingInt(jdk -> jdk.release));
        System.setProperty("vdk.build", args[0]);
        System.exit(new Main(args[0] + "/libvdkagent.so").run(jdks, filters) ? 0 : 1);
    }

    private boolean run(List<Jdk> jdks, List<String> filters) throws Exception {
        List<Runnable> together = new ArrayList<>();
        List<Runnable> alone = new ArrayList<>();
        for (Class<?> suite : Suites.ALL) {
            for (Method method : suite.getDeclaredMethods()) {
                Case test = method.getAnnotation(Case.class);
                if (test == null) {
                    continue;
                }
                for (Jdk jdk : jdks) {
                    for (String variant : test.variants()) {
                        addCases(method, test, jdk, variant, filters,
                                 test.alone() ? alone : together);
                    }
                }
            }
        }
        ExecutorService pool = Executors.newFixedThreadPool(2);
        together.forEach(pool::execute);
        pool.shutdown();
        pool.awaitTermination(Long.MAX_VALUE, TimeUnit.NANOSECONDS);
        alone.forEach(Runnable::run);
        System.out.println(passed + " passed, " + failed + " failed");
        return failed.get() == 0 && passed.get() > 0;
    }

    private void addCases(Method method, Case test, Jdk jdk, String variant, List<String> filters,
                          List<Runnable> list) {
        int sign = variant.indexOf(':') == 2 ? 2 : -1;
        int since = sign < 0 ? test.since() : Integer.parseInt(variant.substring(0, sign));
        String options = variant.substring(sign + 1);
        for (boolean attach : new boolean[] {false, true}) {
            String name = method.getDeclaringClass().getSimpleName() + "." + method.getName() +
                          "[" + (attach ? "attach" : "load") + " " + jdk +
                          (options.isEmpty() ? "" : " " + options) + "]";
            if (jdk.release >= since && (attach ? test.attach() : test.load()) &&
                wanted(name, filters)) {
                list.add(() -> runCase(name, method, test, jdk, attach, options));
            }
        }
    }

    private static boolean wanted(String name, List<String> filters) {
        return filters.isEmpty() || filters.stream().anyMatch(name::contains);
    }

    private void runCase(String name, Method method, Case test, Jdk jdk, boolean attach,
                         String variant) {
        long start = System.nanoTime();
        Throwable fault = null;
        try (Target target = new Target(test, jdk, attach, variant, library)) {
            target.start();
            method.setAccessible(true);
            method.invoke(null, target);
            target.checkLog();
        } catch (InvocationTargetException e) {
            fault = e.getCause();
        } catch (Throwable e) {
            fault = e;
        }
        long ms = (System.nanoTime() - start) / 1_000_000;
        synchronized (this) {
            System.out.println((fault == null ? "ok     " : "FAILED ") + name + " (" + ms + " ms)");
            if (fault != null) {
                fault.printStackTrace(System.out);
            }
        }
        (fault == null ? passed : failed).incrementAndGet();
    }
}
