package com.vandrik.runtime;

import jdk.internal.misc.Unsafe;
import jdk.internal.vm.annotation.DontInline;
import jdk.internal.vm.annotation.ForceInline;

/**
 * Where rewritten application code and the agent's Java classes enter the native library.
 *
 * <p>The four empty methods are what inserted calls name. While a kind of recording runs, the
 * library redefines this class with bodies that call the matching natives, or the variants with the
 * suffix K, which come to them only where a call cannot be kept; the variants with the suffix F are
 * for JVMs that can't redefine it and test a flag instead. The class has no static
 * initialiser, no try block and calls no other Java code: it runs inside every rewritten method,
 * at moments when nothing else can be relied on.
 *
 * <p>The compilers inline the annotated ones wherever they stand, as they do for the JDK's own: the
 * JVM trusts a class of the boot loader. What keeps calls they do not: frames of the program would
 * become larger, and deep recursion come to the end of its stack.
 *
 * <p>The natives are declared in the order of core/ground/CallbackNatives.h; a test compares both.
 */
public class Callback {
    /** Whether {@link #vdkInitF} passes allocations on. */
    public static boolean ourVDKAlloc;

    /** Whether the variants of the calls at entry, exit and handlers pass them on. */
    public static boolean ourVDKMethodEntryExit;

    // core/jvm/KeptCalls tells of kept calls and compares these constants with its own.
    private static final int MOST_METHODS = 1 << 22;
    private static final int RUN_MASK = (1 << 12) - 1;
    private static final int RUN_SHIFT = 8;
    private static final int OPEN = 8;
    private static final int COUNT = 12;
    private static final int CALLS_UNTIL_LOOK = 16;
    private static final int METHODS = 24;
    private static final int MOST_CALLS = 58;

    // Set before a body names the variants with the suffix K. Of the memory only natives are
    // called, which the compilers know and nobody wraps: its Java methods may carry calls
    // themselves.
    static Unsafe ourMemory;
    static long ourThreadIdOffset;
    static long ourFilteredMethods;
    static long ourRuns;

    private Callback() {
    }

    @ForceInline
    public static int vdkInit(Object object, int frameHint) {
        return -1;
    }

    /** At the head of an exception handler, with the exception on the stack. */
    public static void vdkMethodCatch(short low, short high) {
    }

    @ForceInline
    public static void vdkMethodEntry(short low, short high) {
    }

    @ForceInline
    public static void vdkMethodExit(short low, short high) {
    }

    /** The current thread's run if it is open and may hold calls of this method, else 0. */
    @ForceInline
    private static long findOpenRun(int method) {
        Unsafe memory = ourMemory;
        if (method >= MOST_METHODS || memory.getByte(null, ourFilteredMethods + method) == 0) {
            return 0;
        }
        Thread current = Thread.currentThread();
        long thread = current == null ? 0 : memory.getLong(current, ourThreadIdOffset);
        long run = ourRuns + ((thread & RUN_MASK) << RUN_SHIFT);
        return memory.getLong(null, run) == thread && memory.getInt(null, run + OPEN) != 0 ? run
                                                                                           : 0;
    }

    @DontInline
    public static void vdkMethodEntryK(short low, short high) {
        int method = high << 16 | low & 0xffff;
        long run = findOpenRun(method);
        if (run != 0) {
            int count = ourMemory.getInt(null, run + COUNT);
            int untilLook = ourMemory.getInt(null, run + CALLS_UNTIL_LOOK);
            if (count < MOST_CALLS && untilLook > 0) {
                ourMemory.putInt(null, run + METHODS + 4 * count, method);
                ourMemory.putInt(null, run + CALLS_UNTIL_LOOK, untilLook - 1);
                ourMemory.putInt(null, run + COUNT, count + 1);
                return;
            }
        }
        vdkMethodEntry0(low, high);
    }

    @DontInline
    public static void vdkMethodExitK(short low, short high) {
        int method = high << 16 | low & 0xffff;
        long run = findOpenRun(method);
        if (run != 0) {
            int last = ourMemory.getInt(null, run + COUNT) - 1;
            if (last >= 0 && ourMemory.getInt(null, run + METHODS + 4 * last) == method) {
                ourMemory.putInt(null, run + COUNT, last);
                return;
            }
        }
        vdkMethodExit0(low, high);
    }

    public static int vdkInitF(Object object, int frameHint) {
        if (ourVDKAlloc) {
            return vdkInit0(object, frameHint);
        }
        return -1;
    }

    public static void vdkMethodCatchF(short low, short high) {
        if (ourVDKMethodEntryExit) {
            vdkMethodCatch0(low, high);
        }
    }

    public static void vdkMethodEntryF(short low, short high) {
        if (ourVDKMethodEntryExit) {
            vdkMethodEntry0(low, high);
        }
    }

    public static void vdkMethodExitF(short low, short high) {
        if (ourVDKMethodEntryExit) {
            vdkMethodExit0(low, high);
        }
    }

    /** Asks the JVM for a full collection. */
    public static void forceGC() {
        System.gc();
    }

    public static native void addProbePaths(String[] paths);

    public static native void addSnapshotInfo(String path, long flags);

    public static native void advanceGeneration(String description);

    /**
     * For the end of a stay: the names of threads begun by native code that have not ended in time,
     * or "".
     */
    public static native String awaitAgentThreads(long limitMs);

    /** False if the agent is away already, or the JVM ends. */
    public static native boolean beginDetach();

    public static native void bindPark();

    public static native String captureSnapshot(String path, int progressSocket, long flags);

    public static native void clearAllocationData();

    public static native void clearCPUData(boolean log);

    public static native void clearExceptions();

    public static native void clearMonitorData();

    public static native boolean closeUserTableRow(int table, int row, int minimumMs);

    public static native void correctUptimeMs(long etalonMs);

    /** Exceptions are counted by class, for {@link #takeExceptionCounts}, or no longer. */
    public static native void countExceptions(boolean on);

    public static native void createMarker(int port, int state);

    public static native long createObjectMap();

    public static native int createUserTable(String description);

    public static native int createUserTableRow(int table, int frequentThresholdMs, int minimumMs);

    public static native void deleteObjectMap(long map);

    public static native void disableExceptionTelemetry();

    public static native void disableStackTelemetry();

    public static native void enableExceptionTelemetry();

    public static native void enableStackTelemetry();

    public static native void endDetach();

    /**
     * Id and kind of an instance field; null: the class has none of this name, nor one above it.
     */
    public static native long[] findField(Class<?> type, String name);

    public static native int findPropertyRecordIndex(int nameStrID);

    public static native boolean findSnapshot(String path);

    public static native void freeUnusedRows();

    public static native boolean getAllocationRecordingSettingsPerClassGarbage();

    public static native int getAllocationRecordingSettingsRecordEach();

    public static native boolean getAllocationRecordingSettingsRecordEachEnabled();

    public static native int getAllocationRecordingSettingsSizeLimit();

    public static native boolean getAllocationRecordingSettingsSizeLimitEnabled();

    public static native long getCalibrationResult();

    public static native long getCapabilities();

    public static native long getCurrentThreadCPUTimeNs();

    public static native String getDatabaseStatistics();

    public static native int[] getExitedProcesses();

    public static native String getHostID();

    public static native int getPhase();

    public static native int getPID();

    /**
     * The beans of memory, class loading, threads and the JVM, and the lists of those of collectors
     * and pools, past the search for providers of beans that java.lang.management begins with. Null
     * where this JVM has them elsewhere.
     */
    public static native Object[] getManagementBeans();

    /** Status 0: all known probes, the built-in ones first; 1: those that are registered. */
    public static native String[] getProbes(int status);

    public static native long getProcessCPUTimeNs();

    /** Memory of the machine that the process occupies, in bytes; -1 if unknown. */
    public static native long getProcessMemory();

    public static native long getStatus();

    public static native int getTelemetryPeriodMs();

    public static native long getUptimeMs();

    public static native String getUserTableClassNameColumn(int table, int row, int column);

    public static native String getUserTableDescription(int table);

    public static native int getUserTableForeignKeyColumn(int table, int row, int column);

    public static native int getUserTableIntColumn(int table, int row, int column);

    public static native long getUserTableLongColumn(int table, int row, int column);

    public static native String getUserTableStringColumn(int table, int row, int column);

    /**
     * Numbers of classes that have their own bytes again, that failed, that keep wrappers around
     * natives, and of loaders that go on finding the agent; and the longest stop in nanoseconds.
     */
    public static native long[] giveClassesBack(int socket);

    /** Classes that carry calls of a probe; dotted name. */
    public static native int getWovenClassCount(String probeClass);

    /** Whether the first record of telemetry comes after a period, and not at once. */
    public static native boolean isFirstRecordPutOff();

    public static native boolean isFrequentSampling();

    public static native boolean isIBM();

    public static native boolean isUserTableRowClosed(int table, int row);

    public static native void message(String text, String detail);

    public static native void messageToLogFile(String text);

    public static native void messageToStderr(String text);

    public static native void messageToStdout(String text);

    public static native boolean objectMapContains(long map, Object object);

    public static native int objectMapGet(long map, Object object, int absent);

    public static native void objectMapPut(long map, Object object, int value);

    public static native int objectMapRemove(long map, Object object, int absent);

    public static native byte[] patchTemplateClass(String[] macroAndValuePairs);

    /**
     * Has the classes carry the calls of a recording that is about to start: 1 for tracing, 2 for
     * allocations. Gives the number of classes, the time and the longest stop; tells them on the
     * way, unless the socket is 0.
     */
    public static native long[] prepareRecording(int recording, String patterns, String filters,
                                                 int socket);

    /** The value of a reference field; of any other null, and its bits in the array. */
    public static native Object readField(Object object, long field, int kind, long[] bits);

    /** Without "dynamic" the classes that are loaded follow with the next change of the probes. */
    public static native String registerProbesByBytecode(byte[][] classes, boolean dynamic,
                                                         boolean flag);

    public static native String registerProbesByName(String[] classNames);

    public static native boolean registerProcessExitListener(long process, int row);

    public static native void retransformClassesLoadedBeforeAgentWasAttached0(boolean useFilter,
                                                                              String filterFile);

    public static native void setCalibrationResult(long costNs);

    public static native int setProperty(String name, String value);

    public static native void setPropertyByRecordIndex(int row, int value);

    public static native void setThreadTemporaryEnabled(boolean enabled);

    public static native void setUserTableClassNameColumn(int table, int row, int column,
                                                          String value);

    public static native void setUserTableForeignKeyColumn(int table, int row, int column,
                                                           int value);

    public static native void setUserTableIntColumn(int table, int row, int column, int value);

    public static native void setUserTableLongColumn(int table, int row, int column, long value);

    public static native void setUserTableStringColumn(int table, int row, int column,
                                                       String value);

    public static native String startAllocationRecording(boolean eachEnabled, int each,
                                                         boolean sizeLimitEnabled, int sizeLimit,
                                                         boolean perClassGarbage);

    public static native void startCalibrating();

    public static native String startCPUProfiling(long mode, String filters, String wallTimeSpec);

    public static native String startMonitorProfiling();

    public static native String startSampledAllocationRecording(int intervalBytes,
                                                                boolean perClassGarbage);

    /**
     * By the sampler of this name: walk, signal, or wall for elapsed times. Null texts come from
     * their files; the pattern is of elapsed times, null for all threads.
     */
    public static native String startSampling(String sampler, long mode, String filters,
                                              String wallTimeSpec, String threadPattern);

    public static native void stopAllocationRecording();

    public static native void stopCPUProfiling(boolean log);

    public static native void stopMonitorProfiling();

    public static native void stopRecordings();

    public static native void storeTelemetryRecord(int[] telec, int[] tele, int[] extNames,
                                                   int[] extValues);

    /** Those since the last call; lines of a number, a blank and a dotted class name. */
    public static native String takeExceptionCounts();

    public static native void unregisterProbes(String[] classNames);

    public static native String validateMethodPattern(String pattern);

    public static native void writeTables(int socket, int mask, int limit, int[] stamps);

    /** At the head of a {@code catch}, where exceptions are counted by inserted calls. */
    public static native void vdkExceptionCaught0(Object exception);

    /** At the end of a constructor of Throwable, likewise. */
    public static native void vdkExceptionCreated0(Object exception);

    public static native int vdkInit0(Object object, int frameHint);

    public static native void vdkJ2eeEntry1(Object text, int type);

    public static native void vdkJ2eeEntry2(Object key, int type);

    public static native void vdkJ2eeEntry3(Object request, int type);

    public static native void vdkJ2eeExit(Object key, Object text);

    /** The innermost event is left by an exception. */
    public static native void vdkJ2eeLeave();

    public static native void vdkMethodCatch0(short low, short high);

    public static native void vdkMethodEntry0(short low, short high);

    public static native void vdkMethodExit0(short low, short high);

    /** Whether the thread is in a callback of a probe already; if not, it is from now on. */
    public static native boolean vdkProbeEnter0(Thread thread);

    public static native void vdkProbeExit0(Thread thread);
}
