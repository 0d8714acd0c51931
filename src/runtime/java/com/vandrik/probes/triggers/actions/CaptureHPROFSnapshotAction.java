package com.vandrik.probes.triggers.actions;

import com.vandrik.Constants;

/** The heap in the form of HPROF. */
public final class CaptureHPROFSnapshotAction extends SnapshotAction {
    @Override
    protected long getFlags() {
        return Constants.SNAPSHOT_WITH_HEAP | Constants.SNAPSHOT_HPROF;
    }
}
