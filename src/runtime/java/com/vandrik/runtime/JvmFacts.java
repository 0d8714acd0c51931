package com.vandrik.runtime;

import com.vandrik.api.TelemetryRecord;

/**
 * What the management beans know and what can be had without them. A JVM limited to the module
 * java.base has no beans; the agent runs there with this class alone.
 */
class JvmFacts {
    private static JvmFacts ourFacts;

    /** The beans where the JVM has them. The log says so where it hasn't. */
    static synchronized JvmFacts get() {
        if (ourFacts == null) {
            try {
                ourFacts = new ManagementBeans();
            } catch (LinkageError e) {
                Callback.messageToLogFile(
                        "The JVM runs without the module java.management:"
                        + " telemetry has no memory pools, collections, classes and thread counts,"
                        + " and the thread dump no locks");
                ourFacts = new JvmFacts();
            }
        }
        return ourFacts;
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
        tele[TelemetryRecord.TELE_HEAP_MEMORY_USED_KB] =
                MemPoolInfo.bytesToKB(runtime.totalMemory() - runtime.freeMemory());
        tele[TelemetryRecord.TELE_HEAP_MEMORY_COMMITTED_KB] =
                MemPoolInfo.bytesToKB(runtime.totalMemory());
        telec[TelemetryRecord.TELEC_HEAP_MEMORY_MAX_KB_PROP_INDEX] =
                MemPoolInfo.bytesToKB(runtime.maxMemory());
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
