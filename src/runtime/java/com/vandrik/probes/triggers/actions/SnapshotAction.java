package com.vandrik.probes.triggers.actions;

import com.vandrik.Constants;
import com.vandrik.probes.triggers.MethodCall;
import com.vandrik.runtime.Core;

/** Writes a snapshot of some kind. */
public abstract class SnapshotAction extends Action {
    /** With macros; see the names of snapshots. */
    public String myFileName = "<sessionname>-<date>";

    /** What kind it is of. */
    protected abstract long getFlags();

    @Override
    protected void perform(MethodCall call) {
        check(Core.captureSnapshot1(myFileName, 0, getFlags() | Constants.SNAPSHOT_CAUSE_ON_EVENT,
                                    "", null));
    }
}
