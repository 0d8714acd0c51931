package com.vandrik.probes.triggers.actions;

import com.vandrik.probes.triggers.MethodCall;
import com.vandrik.runtime.Callback;

/** CPU profiling ends; what it has recorded stays. */
public final class StopCPUProfilingAction extends Action {
    @Override
    protected void perform(MethodCall call) {
        Callback.stopCPUProfiling(true);
    }
}
