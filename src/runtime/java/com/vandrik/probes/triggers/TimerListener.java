package com.vandrik.probes.triggers;

import com.vandrik.runtime.Callback;

/** Fires each time that the delay has passed. */
public final class TimerListener extends PolledListener {
    private static final long UNSET = -1;

    public Duration myDelay = new Duration(1, Duration.Unit.MINUTES);

    private long myNextMs = UNSET;

    @Override
    public boolean shouldTrigger(long uptimeMs) {
        if (myNextMs == UNSET) {
            myNextMs = myDelay.after(uptimeMs);
        }
        return uptimeMs >= myNextMs;
    }

    @Override
    public void onActionsCompleted() {
        myNextMs = myDelay.after(Callback.getUptimeMs());
    }
}
