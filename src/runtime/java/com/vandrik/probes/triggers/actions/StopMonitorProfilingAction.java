package com.vandrik.probes.triggers.actions;

import com.vandrik.probes.triggers.MethodCall;
import com.vandrik.runtime.Callback;

/** Waits at monitors are no longer recorded. */
public final class StopMonitorProfilingAction extends Action {
    @Override
    protected void perform(MethodCall call) {
        Callback.stopMonitorProfiling();
    }
}
