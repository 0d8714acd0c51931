package com.vandrik.probes.triggers;

/** Used heap as a share of what it may grow to. */
public final class HeapMemoryUsageListener extends PercentListener {
    @Override
    protected long getValue() {
        return percentOf(TelemetryValues.ourHeapMemoryUsed, TelemetryValues.ourHeapMemoryMax);
    }
}
