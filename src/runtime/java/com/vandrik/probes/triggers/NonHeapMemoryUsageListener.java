package com.vandrik.probes.triggers;

/** Used memory outside the heap as a share of what it may grow to. */
public final class NonHeapMemoryUsageListener extends PercentListener {
    @Override
    protected long getValue() {
        if (TelemetryValues.ourNonHeapMemoryUsed < 0) {
            return unknown("the JVM runs without the module java.management");
        }
        if (TelemetryValues.ourNonHeapMemoryMax <= 0) {
            return unknown("this JVM has no limit of its memory outside the heap;"
                           + " -XX:MaxMetaspaceSize sets one");
        }
        return percentOf(TelemetryValues.ourNonHeapMemoryUsed, TelemetryValues.ourNonHeapMemoryMax);
    }
}
