package com.vandrik.probes.triggers.actions;

import com.vandrik.probes.triggers.MethodCall;
import com.vandrik.probes.triggers.MethodListener;

/** A row of the table "Method Invocation". The listener sees to it where the call goes on. */
public final class RecordMethodInvocationAction extends Action {
    @Override
    protected void perform(MethodCall call) {
        if (call != null) {
            MethodListener.record(call);
        }
    }

    @Override
    public boolean isOfMethodsOnly() {
        return true;
    }
}
