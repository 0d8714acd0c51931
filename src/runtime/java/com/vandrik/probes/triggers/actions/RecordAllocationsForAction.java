package com.vandrik.probes.triggers.actions;

import com.vandrik.api.ProfilingModesExt;
import com.vandrik.runtime.Callback;

/** Records where objects are allocated for a time, into a snapshot. */
public final class RecordAllocationsForAction extends ForAWhileAction {
    private static final int DEFAULT_EACH = 100;

    /** One in so many objects. */
    public int myRecordEach = DEFAULT_EACH;

    @Override
    protected void check() {
        if (myRecordEach < 1) {
            throw new IllegalArgumentException("recordEach is less than 1: " + myRecordEach);
        }
    }

    @Override
    protected long getStatusBit() {
        return ProfilingModesExt.ALLOCATION_RECORDING_BIT;
    }

    @Override
    protected void start() {
        check(Callback.startAllocationRecording(true, myRecordEach, false, 0, false));
    }

    @Override
    protected void stop() {
        Callback.stopAllocationRecording();
    }
}
