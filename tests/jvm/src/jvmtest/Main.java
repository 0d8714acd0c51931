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
 * filter...}. Cases run two at a time, those that measure CPU shares alone. A claim that did not
 * hold while the program went on is looked at once more at the end, alone: most claims are of
 * times, and the machine's own work may have been in their way. What failed so is printed and
 * counted. Ends with one line of counts.
 */
public final class Main {
    /** More than this many were no accident. */
    private static final int MOST_SECOND_LOOKS = 3;

    private static final int MOST_CHARS_OF_A_FAULT = 2000;

    private final String library;
    private final List<Runnable> secondLooks = new ArrayList<>();
    /** Told again at the end, where a log that was cut still has them. */
    private final List<String> faults = new ArrayList<>();
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
        // Run while nothing adds to them: a second look asks for no third.
        secondLooks.forEach(Runnable::run);
        System.out.println(
                passed + " passed, " + failed + " failed" +
                (secondLooks.isEmpty() ? "" : ", " + secondLooks.size() + " looked at twice"));
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
                list.add(() -> runCase(name, method, test, jdk, attach, options, true));
            }
        }
    }

    private static boolean wanted(String name, List<String> filters) {
        return filters.isEmpty() || filters.stream().anyMatch(name::contains);
    }

    private void runCase(String name, Method method, Case test, Jdk jdk, boolean attach,
                         String variant, boolean first) {
        long start = System.nanoTime();
        Throwable fault = null;
        boolean wentOn = false;
        try (Target target = new Target(test, jdk, attach, variant, library)) {
            try {
                target.start();
                method.setAccessible(true);
                method.invoke(null, target);
                target.checkLog();
            } catch (InvocationTargetException e) {
                fault = e.getCause();
                target.checkLog();
                wentOn = target.isRunning();
            }
        } catch (Throwable e) {
            fault = e;
            wentOn = false;
        }
        long ms = (System.nanoTime() - start) / 1_000_000;
        boolean again = false;
        synchronized (this) {
            if (first && wentOn && fault instanceof AssertionError &&
                secondLooks.size() < MOST_SECOND_LOOKS) {
                again = true;
                secondLooks.add(() -> runCase(name, method, test, jdk, attach, variant, false));
            }
            System.out.println((fault == null ? "ok     "
                                : again       ? "again  "
                                              : "FAILED ") +
                               name + " (" + ms + " ms)");
            if (fault != null) {
                fault.printStackTrace(System.out);
                String text = (again ? "again  " : "FAILED ") + name + ": " + fault;
                faults.add(text.substring(0, Math.min(text.length(), MOST_CHARS_OF_A_FAULT)));
            }
        }
        if (!again) {
            (fault == null ? passed : failed).incrementAndGet();
        }
    }
}
