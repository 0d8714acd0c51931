package com.vandrik.probes.triggers;

/** Memory of the machine that the whole process occupies. */
public final class ProcessMemoryUsageListener extends ThresholdListener {
    public int myUsageThresholdMB = 1024;

    @Override
    protected long getThreshold() {
        return myUsageThresholdMB;
    }

    @Override
    protected long getValue() {
        long bytes = TelemetryValues.getProcessMemory();
        return bytes < 0 ? unknown("the system does not tell the memory of a process")
                         : bytes / (1024 * 1024);
    }
}
