package com.vandrik.probes;

import com.vandrik.runtime.Callback;
import java.lang.reflect.Field;

/** What a probe may ask about the JVM that it runs in. */
public final class JVM {
    private static final int LIVE_PHASE = 4;

    private JVM() {
    }

    /** Between the end of the JVM's start and the beginning of its end. */
    public static boolean isLivePhase() {
        return Callback.getPhase() == LIVE_PHASE;
    }

    public static boolean isIBM() {
        return Callback.isIBM();
    }

    /** Asks to hear of a child's exit. False where the process object doesn't tell what it is. */
    public static boolean registerProcessExitListener(Process process, int row) {
        Long id = getField(process, "handle");
        if (id == null) {
            id = getPid(process);
        }
        return id != null && Callback.registerProcessExitListener(id, row);
    }

    /** JDK 9 and later tell the id of a process; in earlier ones it is a field. */
    private static Long getPid(Process process) {
        try {
            return (Long) Process.class.getMethod("pid").invoke(process);
        } catch (Exception e) {
            return getField(process, "pid");
        }
    }

    private static Long getField(Process process, String name) {
        try {
            Field field = process.getClass().getDeclaredField(name);
            field.setAccessible(true);
            return field.getLong(process);
        } catch (Exception e) {
            return null;
        }
    }

    /** Rows of the children that have ended since the last call. */
    public static int[] getExitedProcesses() {
        return Callback.getExitedProcesses();
    }
}
