package com.vandrik.probes.triggers;

/** Share of all processors that the process has used since the last look. */
public final class CPUUsageListener extends PercentListener {
    private static final long NEVER = -1;

    private long myLastUptimeMs = NEVER;
    private long myLastCPUTimeMs;

    @Override
    protected long getValue() {
        long uptimeMs = TelemetryValues.ourUptimeMs;
        long timeMs = TelemetryValues.ourCPUTimeMs;
        long passedMs = uptimeMs - myLastUptimeMs;
        boolean isFirst = myLastUptimeMs == NEVER;
        long usedMs = timeMs - myLastCPUTimeMs;
        myLastUptimeMs = uptimeMs;
        myLastCPUTimeMs = timeMs;
        return isFirst ? UNKNOWN : percentOf(usedMs, passedMs * TelemetryValues.ourProcessorCount);
    }
}
