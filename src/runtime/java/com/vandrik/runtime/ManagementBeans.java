package com.vandrik.runtime;

import com.vandrik.api.TelemetryRecord;
import java.lang.management.ClassLoadingMXBean;
import java.lang.management.GarbageCollectorMXBean;
import java.lang.management.ManagementFactory;
import java.lang.management.MemoryMXBean;
import java.lang.management.MemoryPoolMXBean;
import java.lang.management.MemoryType;
import java.lang.management.MemoryUsage;
import java.lang.management.RuntimeMXBean;
import java.lang.management.ThreadInfo;
import java.lang.management.ThreadMXBean;
import java.util.HashMap;
import java.util.List;
import java.util.Map;

/**
 * The only class that names java.lang.management, so that a JVM without that module fails here and
 * nowhere else. It asks single beans: the MBean server is the application's to create and to
 * configure.
 */
final class ManagementBeans extends JvmFacts {
    /** The search for deadlocks stops all threads, so it is made once in so many records. */
    private static final int RECORDS_PER_DEADLOCK_SEARCH = 10;

    private final MemoryMXBean myMemory;
    private final ClassLoadingMXBean myClasses;
    private final ThreadMXBean myThreads;
    private final RuntimeMXBean myRuntime;
    private final List<GarbageCollectorMXBean> myCollectors;
    private final List<MemoryPoolMXBean> myMemoryPools;
    private final Map<String, MemPoolInfo> myPools = new HashMap<String, MemPoolInfo>();
    private int myRecordCount;
    private boolean myDeadlockFound;

    ManagementBeans() {
        Object[] beans = Callback.getManagementBeans();
        if (beans == null) {
            myMemory = ManagementFactory.getMemoryMXBean();
            myClasses = ManagementFactory.getClassLoadingMXBean();
            myThreads = ManagementFactory.getThreadMXBean();
            myRuntime = ManagementFactory.getRuntimeMXBean();
            myCollectors = ManagementFactory.getGarbageCollectorMXBeans();
            myMemoryPools = ManagementFactory.getMemoryPoolMXBeans();
        } else {
            myMemory = (MemoryMXBean) beans[0];
            myClasses = (ClassLoadingMXBean) beans[1];
            myThreads = (ThreadMXBean) beans[2];
            myRuntime = (RuntimeMXBean) beans[3];
            myCollectors = listOf(beans[4]);
            myMemoryPools = listOf(beans[5]);
        }
    }

    @SuppressWarnings("unchecked")
    private static <T> List<T> listOf(Object list) {
        return (List<T>) list;
    }

    @Override
    boolean hasBeans() {
        return true;
    }

    @Override
    long getUptimeMs() {
        return myRuntime.getUptime();
    }

    @Override
    long getStartTimeMs() {
        return myRuntime.getStartTime();
    }

    @Override
    String getInputArguments() {
        StringBuilder text = new StringBuilder();
        for (String argument : myRuntime.getInputArguments()) {
            if (text.length() != 0) {
                text.append(' ');
            }
            text.append(argument);
        }
        return text.toString();
    }

    @Override
    void fillValues(int[] telec, int[] tele, int[] extNames, int[] extValues) {
        fillPools(extNames, extValues);
        fillMemory(telec, tele);
        fillCollections(tele);
        tele[TelemetryRecord.TELE_LOADED_CLASS_COUNT] = myClasses.getLoadedClassCount();
        tele[TelemetryRecord.TELE_LIVE_THREAD_COUNT] = myThreads.getThreadCount();
        tele[TelemetryRecord.TELE_DAEMON_THREAD_COUNT] = myThreads.getDaemonThreadCount();
        telec[TelemetryRecord.TELEC_UNLOADED_CLASS_COUNT_PROP_INDEX] =
                (int) myClasses.getUnloadedClassCount();
        telec[TelemetryRecord.TELEC_PEAK_THREAD_COUNT_PROP_INDEX] = myThreads.getPeakThreadCount();
        telec[TelemetryRecord.TELEC_CREATED_THREAD_COUNT_PROP_INDEX] =
                (int) myThreads.getTotalStartedThreadCount();
        if (myRecordCount++ % RECORDS_PER_DEADLOCK_SEARCH == 0) {
            myDeadlockFound = findDeadlockedThreads().length != 0;
        }
        telec[TelemetryRecord.TELEC_DEADLOCK_FOUND_PROP_INDEX] = myDeadlockFound ? 1 : 0;
    }

    /** Two places for each pool, as long as there are any; the first place is the clock's. */
    private void fillPools(int[] extNames, int[] extValues) {
        int used = 1;
        for (MemoryPoolMXBean bean : myMemoryPools) {
            MemoryUsage usage = bean.getUsage();
            if (usage == null || used + 2 > extNames.length) {
                continue;
            }
            MemPoolInfo pool = myPools.get(bean.getName());
            if (pool == null) {
                pool = new MemPoolInfo(myPools.size(), bean.getName(),
                                       bean.getType() == MemoryType.HEAP);
                myPools.put(bean.getName(), pool);
            }
            extNames[used] = pool.myUsedNameID;
            extValues[used++] = MemPoolInfo.bytesToKB(usage.getUsed());
            extNames[used] = pool.myCommittedNameID;
            extValues[used++] = MemPoolInfo.bytesToKB(usage.getCommitted());
            pool.setInitAndMax(usage.getInit(), usage.getMax());
        }
    }

    private void fillMemory(int[] telec, int[] tele) {
        MemoryUsage heap = myMemory.getHeapMemoryUsage();
        MemoryUsage nonHeap = myMemory.getNonHeapMemoryUsage();
        // Until the first collection the bean of some collectors knows of no use.
        tele[TelemetryRecord.TELE_HEAP_MEMORY_USED_KB] =
                MemPoolInfo.bytesToKB(heap.getUsed() == 0 ? getUsedHeap() : heap.getUsed());
        tele[TelemetryRecord.TELE_HEAP_MEMORY_COMMITTED_KB] =
                MemPoolInfo.bytesToKB(heap.getCommitted());
        tele[TelemetryRecord.TELE_NON_HEAP_MEMORY_USED_KB] =
                MemPoolInfo.bytesToKB(nonHeap.getUsed());
        tele[TelemetryRecord.TELE_NON_HEAP_MEMORY_COMMITTED_KB] =
                MemPoolInfo.bytesToKB(nonHeap.getCommitted());
        telec[TelemetryRecord.TELEC_HEAP_MEMORY_MAX_KB_PROP_INDEX] =
                MemPoolInfo.bytesToKB(heap.getMax());
        telec[TelemetryRecord.TELEC_NON_HEAP_MEMORY_MAX_KB_PROP_INDEX] =
                MemPoolInfo.bytesToKB(nonHeap.getMax());
    }

    /** Counts of the first two collectors, time of all of them. */
    private void fillCollections(int[] tele) {
        long timeMs = 0;
        for (int i = 0; i < myCollectors.size(); i++) {
            GarbageCollectorMXBean collector = myCollectors.get(i);
            if (i < 2) {
                tele[TelemetryRecord.TELE_GC_COLLECTION1_COUNT + i] =
                        (int) Math.max(collector.getCollectionCount(), 0);
            }
            timeMs += Math.max(collector.getCollectionTime(), 0);
        }
        tele[TelemetryRecord.TELE_GC_TOTAL_COLLECTION_TIME_MS] = (int) timeMs;
    }

    @Override
    ThreadInfoRes[] getThreads() {
        ThreadInfo[] infos = myThreads.dumpAllThreads(myThreads.isObjectMonitorUsageSupported(),
                                                      myThreads.isSynchronizerUsageSupported());
        return ManagementThreads.convert(infos);
    }

    @Override
    long[] findDeadlockedThreads() {
        try {
            long[] ids = myThreads.isSynchronizerUsageSupported()
                                 ? myThreads.findDeadlockedThreads()
                                 : myThreads.findMonitorDeadlockedThreads();
            return ids == null ? new long[0] : ids;
        } catch (UnsupportedOperationException e) {
            return new long[0];
        }
    }
}
