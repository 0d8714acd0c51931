package com.vandrik.probes.builtin;

import com.vandrik.probes.JVM;
import com.vandrik.util.ThreadUtil;

/**
 * Asks the system for the ends of child processes, for JVMs that don't tell. Its thread lives while
 * there is one to ask for.
 */
final class ExitWatch implements Runnable {
    private static final int PERIOD_MS = 500;

    private static int ourWatched;
    private static boolean ourRuns;

    private ExitWatch() {
    }

    static void watch(Process process, int row) {
        synchronized (ExitWatch.class) {
            if (!JVM.registerProcessExitListener(process, row)) {
                return;
            }
            ourWatched++;
            if (ourRuns) {
                return;
            }
            ourRuns = true;
        }
        ThreadUtil.createDaemon("VDKAgent-Process", new ExitWatch()).start();
    }

    /** The JVM gets a period to tell by itself, since it knows the exit code. */
    @Override
    public void run() {
        int[] ended = new int[0];
        do {
            ThreadUtil.sleep(PERIOD_MS);
            for (int row : ended) {
                Processes.endedUnseen(row);
            }
            ended = JVM.getExitedProcesses();
        } while (goesOn(ended.length));
    }

    private static synchronized boolean goesOn(int ended) {
        ourWatched -= ended;
        ourRuns = ourWatched > 0 || ended > 0;
        return ourRuns;
    }
}
