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

    /** Asks to hear of a child's exit. False where the process object doesn't tell its handle. */
    public static boolean registerProcessExitListener(Process process, int row) {
        try {
            Field handle = process.getClass().getDeclaredField("handle");
            handle.setAccessible(true);
            return Callback.registerProcessExitListener(handle.getLong(process), row);
        } catch (Exception e) {
            return false;
        }
    }

    /** Rows of the children that have ended since the last call. */
    public static int[] getExitedProcesses() {
        return Callback.getExitedProcesses();
    }
}
