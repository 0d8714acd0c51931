package com.vandrik.probes;

import com.vandrik.runtime.Callback;
import java.lang.reflect.Field;

/** What a probe may ask about the JVM that it runs in. */
public final class JVM {
    private static final int LIVE_PHASE = 4;

    private JVM() {
    }

    /**
     * Tells whether the JVM runs the application: its start is over and its end has not begun.
     * Callbacks may be called before, when much of the JDK is not there yet.
     *
     * @return false at the start and at the end of the JVM
     */
    public static boolean isLivePhase() {
        return Callback.getPhase() == LIVE_PHASE;
    }

    /**
     * Tells the maker of the JVM.
     *
     * @return whether it is one of IBM
     */
    public static boolean isIBM() {
        return Callback.isIBM();
    }

    /**
     * Asks to hear of a child's exit.
     *
     * @param process the child
     * @param row what {@link #getExitedProcesses} gives when it has ended
     * @return false where the process object doesn't tell what it is, and nobody listens
     */
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

    /**
     * Tells who has ended; does not wait.
     *
     * @return the rows of the children that have ended since the last call
     */
    public static int[] getExitedProcesses() {
        return Callback.getExitedProcesses();
    }
}
