package com.vandrik.probes.triggers;

/** A threshold that is a share of something. */
public abstract class PercentListener extends ThresholdListener {
    public int myUsageThresholdPercent = 90;

    @Override
    protected long getThreshold() {
        return myUsageThresholdPercent;
    }

    @Override
    protected void check() {
        super.check();
        if (myUsageThresholdPercent > 100) {
            throw new IllegalArgumentException("usageThresholdPercent is more than 100: " +
                                               myUsageThresholdPercent);
        }
    }
}
