package com.vandrik.runtime;

import com.vandrik.util.ThreadUtil;
import java.lang.management.LockInfo;
import java.lang.management.MonitorInfo;
import java.lang.management.ThreadInfo;
import java.util.Arrays;
import java.util.HashMap;
import java.util.Map;

/** Turns the thread bean's records into the agent's own. Used by {@link ManagementBeans} only. */
final class ManagementThreads {
    private ManagementThreads() {
    }

    static ThreadInfoRes[] convert(ThreadInfo[] infos) {
        Map<Long, Thread> threads = getThreadsByID();
        ThreadInfoRes[] result = new ThreadInfoRes[infos.length];
        int count = 0;
        for (int i = 0; i < infos.length; i++) {
            // a thread that has ended meanwhile leaves a gap
            if (infos[i] != null) {
                result[count++] = convert(infos[i], threads.get(infos[i].getThreadId()));
            }
        }
        return Arrays.copyOf(result, count);
    }

    private static ThreadInfoRes convert(ThreadInfo info, Thread thread) {
        ThreadInfoRes result =
                new ThreadInfoRes(info.getThreadName(), info.getThreadId(), info.getThreadState());
        if (thread != null) {
            result.setThread(thread);
        }
        StackTraceElement[] stack = info.getStackTrace();
        result.setStack(stack);
        LockInfo lock = info.getLockInfo();
        if (lock != null && stack.length != 0) {
            boolean blocked = info.getThreadState() == Thread.State.BLOCKED;
            String note = (blocked ? "waiting to lock " : "waiting on ") + describe(lock);
            if (info.getLockOwnerName() != null) {
                note += " owned by \"" + info.getLockOwnerName() + "\" id=" + info.getLockOwnerId();
            }
            result.myStack[0].addNote(note);
            result.myWait = note;
        }
        for (MonitorInfo monitor : info.getLockedMonitors()) {
            int depth = monitor.getLockedStackDepth();
            if (depth >= 0 && depth < stack.length) {
                result.myStack[depth].addNote("locked " + describe(monitor));
            }
        }
        LockInfo[] owned = info.getLockedSynchronizers();
        for (int i = 0; i < owned.length; i++) {
            result.addOwnedLock(describe(owned[i]));
        }
        return result;
    }

    private static String describe(LockInfo lock) {
        return "<0x" + Integer.toHexString(lock.getIdentityHashCode()) + "> (a " +
                lock.getClassName() + ")";
    }

    /** Only threads themselves know their priority and whether they are daemons. */
    private static Map<Long, Thread> getThreadsByID() {
        Map<Long, Thread> result = new HashMap<Long, Thread>();
        for (Thread thread : ThreadUtil.getLiveThreads()) {
            result.put(thread.getId(), thread);
        }
        return result;
    }
}
