package com.vandrik.probes.triggers.actions;

import com.vandrik.probes.triggers.MethodCall;
import com.vandrik.runtime.Callback;

/** Where objects are allocated is recorded. */
public final class StartAllocationRecordingAction extends Action {
    private static final int DEFAULT_EACH = 10;

    /** One in so many objects; 0: as the size decides alone. */
    public int myRecordEach = DEFAULT_EACH;

    /** And each object of so many bytes or more; 0: none for its size. */
    public int mySizeLimit;

    public boolean myPerClassGarbage;

    @Override
    protected void perform(MethodCall call) {
        check(Callback.startAllocationRecording(myRecordEach > 0, myRecordEach, mySizeLimit > 0,
                                                mySizeLimit, myPerClassGarbage));
    }

    @Override
    protected void check() {
        if (myRecordEach < 0 || mySizeLimit < 0) {
            throw new IllegalArgumentException("recordEach or sizeLimit is negative");
        }
    }
}
