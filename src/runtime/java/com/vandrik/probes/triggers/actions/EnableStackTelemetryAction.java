package com.vandrik.probes.triggers.actions;

import com.vandrik.probes.triggers.MethodCall;
import com.vandrik.runtime.Callback;

/** Stacks of all threads are recorded. */
public final class EnableStackTelemetryAction extends Action {
    @Override
    protected void perform(MethodCall call) {
        Callback.enableStackTelemetry();
    }
}
