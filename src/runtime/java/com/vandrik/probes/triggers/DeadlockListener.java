package com.vandrik.probes.triggers;

import com.vandrik.runtime.JvmEvents;
import java.util.HashSet;
import java.util.Set;

/** Fires when threads wait for each other for ever; once, until others do. */
public final class DeadlockListener extends PolledListener {
    private static final long UNSET = Long.MIN_VALUE;

    /** Time between two looks. The JVM's threads are stopped for each. */
    public Duration myInterval = new Duration(10, Duration.Unit.SECONDS);

    private final Set<Long> myKnown = new HashSet<Long>();
    private long myNextMs = UNSET;

    @Override
    public boolean shouldTrigger(long uptimeMs) {
        if (uptimeMs < myNextMs) {
            return false;
        }
        myNextMs = myInterval.after(uptimeMs);
        boolean isNew = false;
        for (long thread : JvmEvents.findDeadlockedThreads()) {
            isNew |= myKnown.add(thread);
        }
        return isNew;
    }
}
