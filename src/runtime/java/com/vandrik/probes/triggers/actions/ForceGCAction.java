package com.vandrik.probes.triggers.actions;

import com.vandrik.probes.triggers.MethodCall;
import com.vandrik.runtime.Callback;

/** A full collection. */
public final class ForceGCAction extends Action {
    @Override
    protected void perform(MethodCall call) {
        Callback.forceGC();
    }
}
