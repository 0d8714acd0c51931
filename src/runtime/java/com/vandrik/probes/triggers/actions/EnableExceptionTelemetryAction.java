package com.vandrik.probes.triggers.actions;

import com.vandrik.probes.triggers.MethodCall;
import com.vandrik.runtime.Callback;

/** Exceptions are recorded. */
public final class EnableExceptionTelemetryAction extends Action {
    @Override
    protected void perform(MethodCall call) {
        Callback.enableExceptionTelemetry();
    }
}
