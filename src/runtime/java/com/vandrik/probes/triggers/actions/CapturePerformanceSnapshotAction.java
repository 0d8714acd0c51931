package com.vandrik.probes.triggers.actions;

/** All that has been recorded. */
public final class CapturePerformanceSnapshotAction extends SnapshotAction {
    @Override
    protected long getFlags() {
        return 0;
    }
}
