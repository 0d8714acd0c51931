package com.vandrik.probes.triggers.actions;

import com.vandrik.probes.triggers.MethodCall;

/** Does nothing. */
public final class EmptyAction extends Action {
    @Override
    protected void perform(MethodCall call) {
    }
}
