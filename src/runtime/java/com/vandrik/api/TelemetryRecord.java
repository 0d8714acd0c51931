package com.vandrik.api;

/**
 * Indices of the values in a telemetry record, and of the values that are kept once, as properties.
 * Keep in sync with db/Records.h.
 */
public interface TelemetryRecord {
    int TELE_HEAP_MEMORY_USED_KB = 0;
    int TELE_HEAP_MEMORY_COMMITTED_KB = 1;
    int TELE_NON_HEAP_MEMORY_USED_KB = 2;
    int TELE_NON_HEAP_MEMORY_COMMITTED_KB = 3;
    int TELE_LOADED_CLASS_COUNT = 4;
    int TELE_LIVE_THREAD_COUNT = 5;
    int TELE_DAEMON_THREAD_COUNT = 6;
    int TELE_GC_COLLECTION1_COUNT = 7;
    int TELE_GC_COLLECTION2_COUNT = 8;
    int TELE_GC_TOTAL_COLLECTION_TIME_MS = 9;
    int TELE_CPU_TIME_MS = 10;
    int TELE_PROCESSOR_COUNT = 11;

    // Filled by the native side.
    int TELE_UPTIME_DS = 12;
    int TELE_THREAD_STATE_COUNT = 13;
    int TELE_THREAD_STATE_START_INDEX = 14;
    int TELE_EXT_COUNT = 15;
    int TELE_EXT_START_INDEX = 16;

    int TELE_FIELD_COUNT = 17;

    // The last two places of a set of 17 values without extensions.
    int TELE_HANDLE_COUNT = 15;
    int TELE_GC_HANDLE_COUNT = 16;
    int TELE_FIELD_COUNT_OLD = 15;

    /** Places for values of memory pools. */
    int TELE_EXT_MAX_COUNT = 128;

    int TELEC_HEAP_MEMORY_MAX_KB_PROP_INDEX = 0;
    int TELEC_NON_HEAP_MEMORY_MAX_KB_PROP_INDEX = 1;
    int TELEC_UNLOADED_CLASS_COUNT_PROP_INDEX = 2;
    int TELEC_PEAK_THREAD_COUNT_PROP_INDEX = 3;
    int TELEC_CREATED_THREAD_COUNT_PROP_INDEX = 4;
    int TELEC_DEADLOCK_FOUND_PROP_INDEX = 5;
    int TELEC_FIELD_COUNT = 6;
}
