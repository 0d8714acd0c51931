package com.vandrik.probes.triggers.actions;

import com.vandrik.probes.triggers.MethodCall;
import com.vandrik.runtime.Callback;

/** Objects that are made from now on belong to a new generation. */
public final class AdvanceGenerationAction extends Action {
    public String myDescription = "";

    @Override
    protected void perform(MethodCall call) {
        Callback.advanceGeneration(myDescription);
    }
}
