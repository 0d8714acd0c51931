package com.vandrik.runtime;

import com.vandrik.probes.watch.ThreadIDs;
import java.util.Map;

/** The text of a thread dump, in the form that tools for thread dumps read. */
public final class ThreadDump {
    private ThreadDump() {
    }

    public static String getText() {
        JvmFacts facts = JvmFacts.get();
        ThreadInfoRes[] threads = facts.getThreads();
        StringBuilder text = new StringBuilder();
        text.append("Full thread dump ").append(System.getProperty("java.vm.name"));
        text.append(" (").append(System.getProperty("java.vm.version")).append("):\n\n");
        for (int i = 0; i < threads.length; i++) {
            threads[i].appendTo(text);
        }
        appendDeadlock(text, threads, facts.findDeadlockedThreads());
        return text.toString();
    }

    static ThreadInfoRes[] getThreadsWithoutLocks() {
        Map<Thread, StackTraceElement[]> stacks = Thread.getAllStackTraces();
        ThreadInfoRes[] threads = new ThreadInfoRes[stacks.size()];
        int count = 0;
        for (Map.Entry<Thread, StackTraceElement[]> entry : stacks.entrySet()) {
            Thread thread = entry.getKey();
            ThreadInfoRes info =
                    new ThreadInfoRes(thread.getName(), ThreadIDs.of(thread), thread.getState());
            info.setThread(thread);
            info.setStack(entry.getValue());
            threads[count++] = info;
        }
        return threads;
    }

    private static void appendDeadlock(StringBuilder text, ThreadInfoRes[] threads, long[] ids) {
        if (ids.length == 0) {
            return;
        }
        text.append("Found a deadlock of ").append(ids.length).append(" threads:\n");
        for (int i = 0; i < threads.length; i++) {
            for (int k = 0; k < ids.length; k++) {
                if (threads[i].myID == ids[k]) {
                    text.append("\t\"").append(threads[i].myName).append("\" id=");
                    text.append(ids[k]).append('\n');
                    if (threads[i].myWait != null) {
                        text.append("\t\t").append(threads[i].myWait).append('\n');
                    }
                }
            }
        }
    }
}
