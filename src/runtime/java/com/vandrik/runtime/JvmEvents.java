package com.vandrik.runtime;

/** What listeners of triggers ask of the JVM beside its telemetry. */
public final class JvmEvents {
    private static final int REMEMBERED = 1024;

    private static final long[] PAUSES_MS = new long[REMEMBERED];
    private static long ourPauseCount;
    private static boolean ourIsWatching;

    private JvmEvents() {
    }

    /** Ids of threads that wait for each other; none where the JVM can't tell. */
    public static long[] findDeadlockedThreads() {
        return JvmFacts.get().findDeadlockedThreads();
    }

    /** From now on the pauses of the collector count. */
    public static synchronized void watchPauses() {
        if (ourIsWatching) {
            return;
        }
        ourIsWatching = true;
        try {
            PauseWatch.start();
        } catch (LinkageError e) {
            Callback.messageToLogFile("GCPauseListener never fires: the JVM runs without the module"
                                      + " java.management");
        }
    }

    /** For a detach: nothing of the JVM is listened to any more. */
    static synchronized void endPauses() {
        if (ourIsWatching) {
            ourIsWatching = false;
            try {
                PauseWatch.end();
            } catch (LinkageError none) {
                // nothing was begun either
            }
        }
    }

    static synchronized void addPause(long durationMs) {
        PAUSES_MS[(int) (ourPauseCount++ % REMEMBERED)] = durationMs;
    }

    public static synchronized long getPauseCount() {
        return ourPauseCount;
    }

    /** Of the pauses with these numbers, as far as they are remembered. */
    public static synchronized long getLongestPauseMs(long from, long end) {
        long longest = 0;
        for (long i = Math.max(from, end - REMEMBERED); i < end; i++) {
            longest = Math.max(longest, PAUSES_MS[(int) (i % REMEMBERED)]);
        }
        return longest;
    }
}
