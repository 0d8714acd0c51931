package com.vandrik.probes.triggers.actions;

import com.vandrik.api.ProfilingModes;
import com.vandrik.api.ProfilingModesExt;
import com.vandrik.runtime.Callback;

/** Samples stacks for a time, into a snapshot. */
public final class SampleForAction extends ForAWhileAction {
    @Override
    protected long getStatusBit() {
        return ProfilingModesExt.CPU_TIMES_BIT;
    }

    @Override
    protected void start() {
        check(Callback.startCPUProfiling(ProfilingModes.CPU_SAMPLING | ProfilingModes.CPU_J2EE,
                                         null, null));
    }

    @Override
    protected void stop() {
        Callback.stopCPUProfiling(true);
    }
}
