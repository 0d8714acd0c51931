package com.vandrik.util;

import java.util.Arrays;
import java.util.IdentityHashMap;
import java.util.Map;

/** Starts the agent's threads so that the application sees as little of them as can be. */
public final class ThreadUtil {
    private static final String AGENT_PREFIX = "VDKAgent-";
    private static final int LOOK_MS = 20;

    /** Number of the agent's stay in this JVM. */
    private static volatile int ourStay;

    private ThreadUtil() {
    }

    /**
     * A daemon thread, not started yet. It belongs to the system's thread group, so that an
     * application which counts or lists the threads of its own group doesn't find it, and it keeps
     * no class loader of the application alive.
     */
    public static Thread createDaemon(String name, Runnable body) {
        Thread thread = new Thread(getSystemGroup(), body, name);
        thread.setDaemon(true);
        thread.setContextClassLoader(null);
        return thread;
    }

    /** Whether this is a thread of the agent, all of which begin their names so. */
    public static boolean isAgentThread(Thread thread) {
        return isAgentThreadName(thread.getName());
    }

    public static boolean isAgentThreadName(String name) {
        return name.startsWith(AGENT_PREFIX);
    }

    /** For {@link #isOver}; a thread takes it when it is made. */
    public static int getStay() {
        return ourStay;
    }

    /** Whether the stay of this number is over: a thread of that stay ends. */
    public static boolean isOver(int stay) {
        return stay != ourStay;
    }

    /**
     * Ends the stay, and waits for the ends of all threads of the agent but the current one. Gives
     * the names of those that have not ended in time, "" if there are none.
     */
    public static String endAgentThreads(long limitMs) {
        ourStay++;
        Map<Thread, Boolean> woken = new IdentityHashMap<Thread, Boolean>();
        long end = System.nanoTime() + limitMs * 1000000;
        while (true) {
            StringBuilder names = new StringBuilder();
            for (Thread thread : getLiveThreads()) {
                if (isAgentThread(thread) && thread != Thread.currentThread()) {
                    names.append(names.length() == 0 ? "" : ", ").append(thread.getName());
                    if (woken.put(thread, true) == null) {
                        thread.interrupt();
                    }
                }
            }
            if (names.length() == 0 || System.nanoTime() - end >= 0) {
                return names.toString();
            }
            sleep(LOOK_MS);
        }
    }

    /** Sleeps; an interrupt ends the sleep early and is otherwise ignored. */
    public static void sleep(long milliseconds) {
        try {
            Thread.sleep(milliseconds);
        } catch (InterruptedException expected) {
            // only where the agent's threads are to end, which all look for
        }
    }

    /** Waits for the end of a thread, whatever interrupts; the caller finds the interrupt later. */
    public static void joinUninterruptibly(Thread thread) {
        boolean interrupted = false;
        while (thread.isAlive()) {
            try {
                thread.join();
            } catch (InterruptedException e) {
                interrupted = true;
            }
        }
        if (interrupted) {
            Thread.currentThread().interrupt();
        }
    }

    /** All platform threads, the agent's too. */
    public static Thread[] getLiveThreads() {
        ThreadGroup group = getSystemGroup();
        if (group == null) {
            return new Thread[0];
        }
        Thread[] threads = new Thread[group.activeCount() * 2 + 16];
        return Arrays.copyOf(threads, group.enumerate(threads));
    }

    public static ThreadGroup getSystemGroup() {
        ThreadGroup group = Thread.currentThread().getThreadGroup();
        while (group != null && group.getParent() != null) {
            group = group.getParent();
        }
        return group;
    }
}
