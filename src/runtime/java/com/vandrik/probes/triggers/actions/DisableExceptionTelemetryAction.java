package com.vandrik.probes.triggers.actions;

import com.vandrik.probes.triggers.MethodCall;
import com.vandrik.runtime.Callback;

/** Exceptions are no longer recorded. */
public final class DisableExceptionTelemetryAction extends Action {
    @Override
    protected void perform(MethodCall call) {
        Callback.disableExceptionTelemetry();
    }
}
