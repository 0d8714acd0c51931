package com.vandrik.probes.triggers.actions;

import com.vandrik.Constants;
import com.vandrik.probes.triggers.Duration;
import com.vandrik.probes.triggers.MethodCall;
import com.vandrik.runtime.Callback;
import com.vandrik.runtime.Core;
import com.vandrik.util.ThreadUtil;

/**
 * Records something for a time and captures a snapshot of it. What is being recorded already goes
 * on afterwards.
 */
public abstract class ForAWhileAction extends BackgroundAction {
    /** One at a time: a second one would be part of the first. */
    static final BackgroundQueue QUEUE = new BackgroundQueue("VDKAgent-TriggerRecording", 1);

    public Duration myDuration = new Duration(30, Duration.Unit.SECONDS);

    /** With macros; see the names of snapshots. */
    public String myFileName = "<sessionname>-<date>";

    /** The bit of the status that tells whether it is being recorded. */
    protected abstract long getStatusBit();

    protected abstract void start();

    protected abstract void stop();

    @Override
    protected final BackgroundQueue getQueue() {
        return QUEUE;
    }

    @Override
    protected final Runnable prepare(MethodCall call) {
        return new Runnable() {
            @Override
            public void run() {
                record();
            }
        };
    }

    private boolean isOn() {
        return (Callback.getStatus() & getStatusBit()) != 0;
    }

    private void record() {
        boolean wasOn = isOn();
        if (!wasOn) {
            start();
        }
        String[] path = new String[1];
        try {
            ThreadUtil.sleep(myDuration.toMilliseconds());
            check(Core.captureSnapshot1(myFileName, 0, Constants.SNAPSHOT_CAUSE_ON_EVENT, "",
                                        path));
        } finally {
            if (!wasOn && isOn()) {
                stop();
            }
        }
        report(path[0] + (wasOn ? ", of a recording that goes on" : ""), null);
    }
}
