package com.vandrik.probes.triggers.actions;

import com.vandrik.api.ProfilingModes;
import com.vandrik.probes.triggers.MethodCall;
import com.vandrik.runtime.Callback;

/** Stacks are sampled. */
public final class StartCPUSamplingAction extends Action {
    /** Whether database statements, requests and tests are told apart in the call tree. */
    public boolean myJ2EE = true;

    /** Lines that name what is measured in wall time; "": as the agent's options say. */
    public String myWallTime = "";

    @Override
    protected void perform(MethodCall call) {
        long mode = ProfilingModes.CPU_SAMPLING | (myJ2EE ? ProfilingModes.CPU_J2EE : 0);
        check(Callback.startCPUProfiling(mode, null, myWallTime.isEmpty() ? null : myWallTime));
    }
}
