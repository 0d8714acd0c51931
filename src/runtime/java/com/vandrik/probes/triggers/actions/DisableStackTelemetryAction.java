package com.vandrik.probes.triggers.actions;

import com.vandrik.probes.triggers.MethodCall;
import com.vandrik.runtime.Callback;

/** Stacks of all threads are no longer recorded. */
public final class DisableStackTelemetryAction extends Action {
    @Override
    protected void perform(MethodCall call) {
        Callback.disableStackTelemetry();
    }
}
