package com.vandrik.probes.triggers.actions;

import com.vandrik.probes.triggers.MethodCall;
import com.vandrik.runtime.Callback;

/** Waits at monitors are recorded. */
public final class StartMonitorProfilingAction extends Action {
    @Override
    protected void perform(MethodCall call) {
        check(Callback.startMonitorProfiling());
    }
}
