package jvmtest;

import java.lang.reflect.InvocationTargetException;
import java.lang.reflect.Method;
import java.lang.reflect.Modifier;
import java.util.Arrays;
import java.util.Comparator;

/**
 * Tests inside this JVM: loads the library that the first argument names, then runs every static
 * method without parameters, but private ones, of the classes that the others name.
 */
public final class InProcess {
    private InProcess() {
    }

    public static void main(String[] args) throws Exception {
        System.load(args[0]);
        int passed = 0;
        int failed = 0;
        for (int i = 1; i < args.length; i++) {
            Method[] methods = Class.forName(args[i]).getDeclaredMethods();
            Arrays.sort(methods, Comparator.comparing(Method::getName));
            for (Method method : methods) {
                if (Modifier.isStatic(method.getModifiers()) && method.getParameterCount() == 0 &&
                    !Modifier.isPrivate(method.getModifiers())) {
                    boolean ok = run(method);
                    passed += ok ? 1 : 0;
                    failed += ok ? 0 : 1;
                }
            }
        }
        System.out.println(passed + " passed, " + failed + " failed");
        System.exit(failed == 0 && passed > 0 ? 0 : 1);
    }

    private static boolean run(Method method) throws Exception {
        try {
            method.setAccessible(true);
            method.invoke(null);
            return true;
        } catch (InvocationTargetException e) {
            System.out.println("FAILED " + method);
            e.getCause().printStackTrace(System.out);
            return false;
        }
    }
}
