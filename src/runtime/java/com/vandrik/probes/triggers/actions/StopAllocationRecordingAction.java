package com.vandrik.probes.triggers.actions;

import com.vandrik.probes.triggers.MethodCall;
import com.vandrik.runtime.Callback;

/** Allocations are no longer recorded. */
public final class StopAllocationRecordingAction extends Action {
    @Override
    protected void perform(MethodCall call) {
        Callback.stopAllocationRecording();
    }
}
