package com.vandrik.probes.triggers.actions;

import com.vandrik.probes.triggers.Duration;
import com.vandrik.probes.triggers.MethodCall;

/** The actions behind it are put off. On the telemetry thread that holds up no other listener. */
public final class SleepAction extends Action {
    public Duration myDuration = new Duration(1, Duration.Unit.SECONDS);

    /** An application that interrupts its thread does not wait any longer. */
    @Override
    protected void perform(MethodCall call) {
        try {
            Thread.sleep(myDuration.toMilliseconds());
        } catch (InterruptedException e) {
            Thread.currentThread().interrupt();
        }
    }
}
