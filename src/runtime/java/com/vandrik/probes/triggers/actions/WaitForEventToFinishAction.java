package com.vandrik.probes.triggers.actions;

import com.vandrik.probes.triggers.Duration;
import com.vandrik.probes.triggers.MethodCall;

/**
 * The actions behind it are put off until a value is below its threshold again. The telemetry
 * thread sees to it; any other event is over at once.
 */
public final class WaitForEventToFinishAction extends Action {
    /** None: however long it takes. */
    public Duration myMaxTimeToWait;

    @Override
    protected void perform(MethodCall call) {
    }
}
