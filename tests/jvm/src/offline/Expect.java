package offline;

import java.lang.reflect.InvocationTargetException;
import java.lang.reflect.Method;
import java.util.Arrays;
import java.util.Comparator;

/**
 * Drives every native of com.vandrik.Natives in this JVM. The argument is the path of the library.
 * A case is a public static method of a case class; the process ends with status 1 if one fails.
 */
public final class NativesTest {
    private NativesTest() {
    }

    public static void main(String[] args) throws Exception {
        System.load(args[0]);
        int failed = 0;
        int run = 0;
        for (Class<?> cases :
             new Class<?>[] {StorageCases.class, AnalysisCases.class, DatabaseCases.class,
                             ProcessCases.class, HostileCases.class}) {
            Method[] methods = cases.getDeclaredMethods();
            Arrays.sort(methods, Comparator.comparing(Method::getName));
            for (Method method : methods) {
                if (!java.lang.reflect.Modifier.isPublic(method.getModifiers())) {
                    continue;
                }
                run++;
                try {
                    method.invoke(null);
                } catch (InvocationTargetException e) {
                    failed++;
                    System.out.println("FAILED " + cases.getSimpleName() + "." + method.getName());
                    e.getCause().printStackTrace(System.out);
                }
            }
        }
        System.out.println(run + " cases, " + failed + " failed, Java " +
                           System.getProperty("java.version"));
        System.exit(failed == 0 ? 0 : 1);
    }

    static void check(boolean condition, String what) {
        if (!condition) {
            throw new AssertionError(what);
        }
    }

    static void same(long expected, long actual, String what) {
        check(expected == actual, what + ": expected " + expected + ", was " + actual);
    }

    /** The message of the RuntimeException that the code must throw. */
    static String thrownBy(Runnable code) {
        try {
            code.run();
        } catch (RuntimeException e) {
            check(e.getClass() == RuntimeException.class, "class of " + e);
            return e.getMessage();
        }
        throw new AssertionError("nothing was thrown");
    }

    static void throwsInternal(Runnable code) {
        String message = thrownBy(code);
        check("assertion failed in native code; see agent log for detail".equals(message), message);
    }
}
