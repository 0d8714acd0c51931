package com.vandrik.probes.triggers;

import com.vandrik.api.TelemetryRecord;
import com.vandrik.runtime.Callback;

/**
 * The last values of the telemetry thread, for listeners and macros: memory in bytes, -1 where a
 * value is unknown.
 */
public final class TelemetryValues {
    private static final long UNKNOWN = -1;
    private static final long KB = 1024;
    private static final long NS_PER_MS = 1000000;

    public static volatile long ourHeapMemoryUsed = UNKNOWN;
    public static volatile long ourHeapMemoryCommited = UNKNOWN;
    public static volatile long ourHeapMemoryMax = UNKNOWN;
    public static volatile long ourNonHeapMemoryUsed = UNKNOWN;
    public static volatile long ourNonHeapMemoryCommited = UNKNOWN;
    public static volatile long ourNonHeapMemoryMax = UNKNOWN;
    public static volatile long ourLoadedClassCount = UNKNOWN;
    public static volatile long ourLiveThreadCount = UNKNOWN;
    public static volatile long ourDaemonThreadCount = UNKNOWN;
    public static volatile long ourGCTotalCollectionTimeMs = UNKNOWN;
    public static volatile long ourCPUTimeMs = UNKNOWN;
    /** 100 is one processor in full use. */
    public static volatile long ourCPUUsagePercent = UNKNOWN;

    /** Of the last event of an ExceptionListener; null before the first. */
    public static volatile String ourExceptionClass;
    public static volatile long ourExceptionCount = UNKNOWN;

    static volatile long ourUptimeMs = UNKNOWN;
    static volatile int ourProcessorCount = 1;

    /** Asked for once in a round, if at all. */
    private static volatile long ourProcessMemory = UNKNOWN;

    private TelemetryValues() {
    }

    /** With a record; some values of it are known only where the JVM has its management beans. */
    public static void update(int[] telec, int[] tele, boolean hasBeans, long uptimeMs) {
        ourHeapMemoryUsed = bytes(tele[TelemetryRecord.TELE_HEAP_MEMORY_USED_KB]);
        ourHeapMemoryCommited = bytes(tele[TelemetryRecord.TELE_HEAP_MEMORY_COMMITTED_KB]);
        ourHeapMemoryMax = bytes(telec[TelemetryRecord.TELEC_HEAP_MEMORY_MAX_KB_PROP_INDEX]);
        ourLiveThreadCount = tele[TelemetryRecord.TELE_LIVE_THREAD_COUNT];
        ourDaemonThreadCount = tele[TelemetryRecord.TELE_DAEMON_THREAD_COUNT];
        if (hasBeans) {
            updateFromBeans(telec, tele);
        }
        updateCPU(tele[TelemetryRecord.TELE_PROCESSOR_COUNT], uptimeMs);
        ourProcessMemory = UNKNOWN;
    }

    private static void updateFromBeans(int[] telec, int[] tele) {
        ourNonHeapMemoryUsed = bytes(tele[TelemetryRecord.TELE_NON_HEAP_MEMORY_USED_KB]);
        ourNonHeapMemoryCommited = bytes(tele[TelemetryRecord.TELE_NON_HEAP_MEMORY_COMMITTED_KB]);
        ourNonHeapMemoryMax = bytes(telec[TelemetryRecord.TELEC_NON_HEAP_MEMORY_MAX_KB_PROP_INDEX]);
        ourLoadedClassCount = tele[TelemetryRecord.TELE_LOADED_CLASS_COUNT];
        ourGCTotalCollectionTimeMs = tele[TelemetryRecord.TELE_GC_TOTAL_COLLECTION_TIME_MS];
    }

    private static void updateCPU(int processorCount, long uptimeMs) {
        long timeMs = Callback.getProcessCPUTimeNs() / NS_PER_MS;
        long passedMs = uptimeMs - ourUptimeMs;
        if (ourUptimeMs != UNKNOWN && passedMs > 0) {
            ourCPUUsagePercent = (timeMs - ourCPUTimeMs) * 100 / passedMs;
        }
        ourCPUTimeMs = timeMs;
        ourUptimeMs = uptimeMs;
        ourProcessorCount = Math.max(processorCount, 1);
    }

    private static long bytes(int kilobytes) {
        return kilobytes * KB;
    }

    /** Memory of the machine that the process occupies, in bytes. */
    public static long getProcessMemory() {
        if (ourProcessMemory == UNKNOWN) {
            ourProcessMemory = Callback.getProcessMemory();
        }
        return ourProcessMemory;
    }
}
