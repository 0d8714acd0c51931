package com.vandrik.runtime;

import com.vandrik.api.TelemetryRecord;
import com.vandrik.util.ThreadUtil;

/**
 * What the management beans know and what can be had without them. A JVM limited to the module
 * java.base has no beans; the agent runs there with this class alone.
 */
class JvmFacts {
    /** A property: the places of the telemetry values that are 0 because nobody knows them. */
    private static final String UNKNOWN_VALUES = "vdk.telemetry.unknown";

    private static JvmFacts ourFacts;

    /** The beans where the JVM has them. The log says so where it hasn't. */
    static synchronized JvmFacts get() {
        if (ourFacts == null) {
            try {
                ourFacts = new ManagementBeans();
            } catch (LinkageError e) {
                Callback.messageToLogFile(
                        "The JVM runs without the module java.management:"
                        + " telemetry has no memory pools, collections and classes,"
                        + " and the thread dump no locks");
                Callback.setProperty(UNKNOWN_VALUES, getUnknownPlaces());
                ourFacts = new JvmFacts();
            }
        }
        return ourFacts;
    }

    /** Separated by commas. */
    private static String getUnknownPlaces() {
        return TelemetryRecord.TELE_NON_HEAP_MEMORY_USED_KB + "," +
                TelemetryRecord.TELE_NON_HEAP_MEMORY_COMMITTED_KB + "," +
                TelemetryRecord.TELE_LOADED_CLASS_COUNT + "," +
                TelemetryRecord.TELE_GC_COLLECTION1_COUNT + "," +
                TelemetryRecord.TELE_GC_COLLECTION2_COUNT + "," +
                TelemetryRecord.TELE_GC_TOTAL_COLLECTION_TIME_MS;
    }

    /** Heap in use by the JVM's own count, which needs no collection to be made first. */
    static long getUsedHeap() {
        Runtime runtime = Runtime.getRuntime();
        return runtime.totalMemory() - runtime.freeMemory();
    }

    /** Whether it knows all values of a telemetry record. */
    boolean hasBeans() {
        return false;
    }

    /** Milliseconds since the JVM's start. */
    long getUptimeMs() {
        return Callback.getUptimeMs();
    }

    /** In milliseconds since 1970. */
    long getStartTimeMs() {
        return System.currentTimeMillis() - getUptimeMs();
    }

    /** The JVM's options, separated by blanks; null if unknown. */
    String getInputArguments() {
        return null;
    }

    /** Stores all values that are known into the cleared arrays of a telemetry record. */
    void fillValues(int[] telec, int[] tele, int[] extNames, int[] extValues) {
        Runtime runtime = Runtime.getRuntime();
        tele[TelemetryRecord.TELE_HEAP_MEMORY_USED_KB] = MemPoolInfo.bytesToKB(getUsedHeap());
        tele[TelemetryRecord.TELE_HEAP_MEMORY_COMMITTED_KB] =
                MemPoolInfo.bytesToKB(runtime.totalMemory());
        telec[TelemetryRecord.TELEC_HEAP_MEMORY_MAX_KB_PROP_INDEX] =
                MemPoolInfo.bytesToKB(runtime.maxMemory());
        Thread[] threads = ThreadUtil.getLiveThreads();
        int daemons = 0;
        for (Thread thread : threads) {
            daemons += thread.isDaemon() ? 1 : 0;
        }
        tele[TelemetryRecord.TELE_LIVE_THREAD_COUNT] = threads.length;
        tele[TelemetryRecord.TELE_DAEMON_THREAD_COUNT] = daemons;
    }

    /** All threads with their stacks. */
    ThreadInfoRes[] getThreads() {
        return ThreadDump.getThreadsWithoutLocks();
    }

    /** Ids of threads that wait for each other, empty if there are none or it can't be known. */
    long[] findDeadlockedThreads() {
        return new long[0];
    }
}
