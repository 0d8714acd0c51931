package com.vandrik.probes.triggers;

import com.vandrik.runtime.Callback;
import java.util.HashSet;
import java.util.Set;

/** Fires when a value of the telemetry has been at its threshold, or above, for some time. */
public abstract class ThresholdListener extends PolledListener {
    protected static final long UNKNOWN = -1;

    private static final long NOT_CROSSED = -1;

    /** What the log has been told. Used by the telemetry thread alone. */
    private static final Set<String> TOLD = new HashSet<String>();

    public Duration myMinimumTimeToActivate = new Duration(0, Duration.Unit.MILLISECONDS);

    private long myCrossedMs = NOT_CROSSED;
    private boolean myIsTold;

    /** In the unit of the threshold; UNKNOWN if it can't be had. */
    protected abstract long getValue();

    protected abstract long getThreshold();

    @Override
    public boolean shouldTrigger(long uptimeMs) {
        if (!isReached()) {
            myCrossedMs = NOT_CROSSED;
            return false;
        }
        if (myCrossedMs == NOT_CROSSED) {
            myCrossedMs = uptimeMs;
        }
        if (uptimeMs - myCrossedMs < myMinimumTimeToActivate.toMilliseconds()) {
            return false;
        }
        myCrossedMs = NOT_CROSSED;
        return true;
    }

    @Override
    public boolean isEventFinished() {
        return !isReached();
    }

    private boolean isReached() {
        long value = getValue();
        return value != UNKNOWN && value >= getThreshold();
    }

    protected static long percentOf(long part, long whole) {
        return part < 0 || whole <= 0 ? UNKNOWN : (long) ((double) part / whole * 100);
    }

    /** Tells once why listeners of a kind never fire. */
    protected final long unknown(String reason) {
        if (myIsTold) {
            return UNKNOWN;
        }
        myIsTold = true;
        String text = Serialization.getExternalName(getClass()) + " never fires: " + reason;
        if (TOLD.add(text)) {
            Callback.messageToLogFile(text);
        }
        return UNKNOWN;
    }

    @Override
    protected void check() {
        super.check();
        if (getThreshold() < 0) {
            throw new IllegalArgumentException("negative threshold: " + getThreshold());
        }
    }
}
