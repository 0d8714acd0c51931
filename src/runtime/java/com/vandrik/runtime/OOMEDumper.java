package com.vandrik.runtime;

import com.vandrik.util.Strings;
import java.io.File;
import java.lang.reflect.InvocationTargetException;

/**
 * A thin layer on the HotSpot diagnostic bean, which is named by text only: its module may be
 * absent. The bean is asked for directly; the MBean server is the application's to create.
 */
public final class OOMEDumper {
    /** The JVM has no such bean. */
    public static final int STATUS_NOT_AVAILABLE = 0;

    /** The JVM doesn't dump its heap when memory runs out. */
    public static final int STATUS_DISABLED = 1;

    public static final int STATUS_ENABLED = 2;

    // Results of setOption. Keep in sync with DiagnosticNatives.cpp.
    private static final int SET_FAILED = 0;
    private static final int SET_DONE = 1;

    private static final String BEAN_CLASS = "com.sun.management.HotSpotDiagnosticMXBean";
    private static final String OPTION = "HeapDumpOnOutOfMemoryError";

    /** Origins of values that nobody has chosen, and that of a value which was set as we do. */
    private static final String LEFT_TO_US = "DEFAULT ERGONOMIC";
    private static final String SET_BY_BEAN = "MANAGEMENT";

    /** The agent has set the option, and not taken it back. */
    private static boolean ourIsSet;

    /** The agent has taken it back: the JVM no longer tells that nobody chose the value. */
    private static boolean ourIsTakenBack;

    private OOMEDumper() {
    }

    public static int getStatus() {
        try {
            Object option = invoke("getVMOption", new Class<?>[] {String.class}, OPTION);
            Object value = option.getClass().getMethod("getValue").invoke(option);
            return "true".equals(value) ? STATUS_ENABLED : STATUS_DISABLED;
        } catch (Throwable e) {
            return STATUS_NOT_AVAILABLE;
        }
    }

    /**
     * Makes the JVM dump its heap when memory runs out, unless its user has decided on that. The
     * log tells if it doesn't.
     */
    public static void enable() {
        try {
            int result = setOption(OPTION, "true", ourIsTakenBack ? SET_BY_BEAN : LEFT_TO_US);
            ourIsSet = result == SET_DONE;
            if (result == SET_FAILED && isLeftToUs()) {
                invoke("setVMOption", new Class<?>[] {String.class, String.class}, OPTION, "true");
                ourIsSet = true;
            } else if (result != SET_DONE) {
                Callback.messageToLogFile("Heap dump on OutOfMemoryError is left as it is:"
                                          + " the option was given to this JVM");
            }
        } catch (ClassNotFoundException e) {
            Callback.messageToLogFile("Heap dump on OutOfMemoryError is not enabled:"
                                      + " the JVM runs without the module jdk.management");
        } catch (Throwable e) {
            Callback.messageToLogFile("Heap dump on OutOfMemoryError is not enabled: " +
                                      Strings.messageOf(e));
        }
    }

    /** The option as the agent found it; who has changed it since keeps it. False if that fails. */
    static boolean takeBack() {
        if (!ourIsSet || getStatus() != STATUS_ENABLED) {
            return true;
        }
        ourIsSet = false;
        ourIsTakenBack = setOption(OPTION, "false", SET_BY_BEAN) == SET_DONE;
        return ourIsTakenBack;
    }

    public static boolean isAvailable() {
        try {
            return getBean() != null;
        } catch (Throwable e) {
            return false;
        }
    }

    /** Writes an HPROF file; one of that name is replaced. */
    public static void dumpHeap(String path) throws Throwable {
        new File(path).delete();
        invoke("dumpHeap", new Class<?>[] {String.class, boolean.class}, path, false);
    }

    /** Whether nobody has chosen the value of the option. */
    private static boolean isLeftToUs() throws Throwable {
        Object option = invoke("getVMOption", new Class<?>[] {String.class}, OPTION);
        String origin = option.getClass().getMethod("getOrigin").invoke(option).toString();
        return origin.equals("DEFAULT") || origin.equals("ERGONOMIC");
    }

    /**
     * Sets an option without the factory of beans, if the origin of its value is one of these;
     * fails where the JVM isn't built that way.
     */
    private static native int setOption(String name, String value, String origins);

    private static Object invoke(String name, Class<?>[] types, Object... arguments)
            throws Throwable {
        try {
            return Class.forName(BEAN_CLASS).getMethod(name, types).invoke(getBean(), arguments);
        } catch (InvocationTargetException e) {
            throw e.getCause();
        }
    }

    private static Object getBean() throws Throwable {
        Class<?> factory = Class.forName("java.lang.management.ManagementFactory");
        try {
            return factory.getMethod("getPlatformMXBean", Class.class)
                    .invoke(null, Class.forName(BEAN_CLASS));
        } catch (InvocationTargetException e) {
            throw e.getCause();
        }
    }
}
