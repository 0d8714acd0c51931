package com.vandrik.probes.triggers.actions;

import com.vandrik.Constants;

/** The heap, and all that has been recorded. */
public final class CaptureMemorySnapshotAction extends SnapshotAction {
    @Override
    protected long getFlags() {
        return Constants.SNAPSHOT_WITH_HEAP;
    }
}
