package com.vandrik.util;

import java.util.Arrays;

/** Starts the agent's threads so that the application sees as little of them as can be. */
public final class ThreadUtil {
    private static final String AGENT_PREFIX = "VDKAgent-";

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

    /** Sleeps; an interrupt ends the sleep early and is otherwise ignored. */
    public static void sleep(long milliseconds) {
        try {
            Thread.sleep(milliseconds);
        } catch (InterruptedException expected) {
            // nobody interrupts the agent's threads on purpose
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
