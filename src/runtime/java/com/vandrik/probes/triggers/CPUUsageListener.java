package com.vandrik.probes.triggers;

/**
 * CPU time that the process has used since the last look, as a share of the time that has passed:
 * 100 is one processor in full use.
 */
public final class CPUUsageListener extends ThresholdListener {
    private static final long NEVER = -1;

    public int myUsageThresholdPercent = 90;

    /** 100 is all processors in full use. */
    public boolean myOfAllProcessors;

    private long myLastUptimeMs = NEVER;
    private long myLastCPUTimeMs;

    @Override
    protected long getThreshold() {
        return myUsageThresholdPercent;
    }

    @Override
    protected long getValue() {
        long uptimeMs = TelemetryValues.ourUptimeMs;
        long timeMs = TelemetryValues.ourCPUTimeMs;
        long passedMs = uptimeMs - myLastUptimeMs;
        boolean isFirst = myLastUptimeMs == NEVER;
        long usedMs = timeMs - myLastCPUTimeMs;
        myLastUptimeMs = uptimeMs;
        myLastCPUTimeMs = timeMs;
        long wholeMs = passedMs * (myOfAllProcessors ? TelemetryValues.ourProcessorCount : 1);
        return isFirst ? UNKNOWN : percentOf(usedMs, wholeMs);
    }
}
