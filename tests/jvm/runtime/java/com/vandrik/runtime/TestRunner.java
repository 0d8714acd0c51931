package com.vandrik.runtime;

import java.lang.reflect.InvocationTargetException;
import java.lang.reflect.Method;
import java.lang.reflect.Modifier;
import java.util.Arrays;
import java.util.Comparator;

/** Runs every static method whose name begins with "test" of the classes given by name. */
public final class TestRunner {
    private TestRunner() {
    }

    public static void main(String[] args) throws Exception {
        System.load(args[0]);
        int passed = 0;
        int failed = 0;
        for (int i = 1; i < args.length; i++) {
            Method[] methods = Class.forName(args[i]).getDeclaredMethods();
            Arrays.sort(methods, Comparator.comparing(Method::getName));
            for (Method method : methods) {
                if (!Modifier.isStatic(method.getModifiers()) ||
                    !method.getName().startsWith("test")) {
                    continue;
                }
                if (run(method)) {
                    passed++;
                } else {
                    failed++;
                }
            }
        }
        System.out.println(passed + " passed, " + failed + " failed");
        System.exit(failed == 0 && passed > 0 ? 0 : 1);
    }

    private static boolean run(Method method) throws Exception {
        String name = method.getDeclaringClass().getSimpleName() + "." + method.getName();
        try {
            method.setAccessible(true);
            method.invoke(null);
            return true;
        } catch (InvocationTargetException e) {
            System.out.println("FAILED " + name);
            e.getCause().printStackTrace(System.out);
            return false;
        }
    }
}
