package com.vandrik.probes.triggers;

import com.vandrik.runtime.JvmEvents;

/** Fires when the garbage collector has stopped the threads for long. */
public final class GCPauseListener extends PolledListener {
    private static final int DEFAULT_MS = 500;

    public Duration myLongerThan = new Duration(DEFAULT_MS, Duration.Unit.MILLISECONDS);

    /** Pauses before that one have been looked at. */
    private long myNextPause;

    private boolean myIsStarted;

    @Override
    public boolean shouldTrigger(long uptimeMs) {
        if (!myIsStarted) {
            JvmEvents.watchPauses();
            myNextPause = JvmEvents.getPauseCount();
            myIsStarted = true;
        }
        long end = JvmEvents.getPauseCount();
        long longestMs = JvmEvents.getLongestPauseMs(myNextPause, end);
        myNextPause = end;
        return longestMs > myLongerThan.toMilliseconds();
    }
}
