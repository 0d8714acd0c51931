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

    /** The one that runs, or null. */
    private static ExitWatch ourRunning;

    private final int myStay = ThreadUtil.getStay();

    private ExitWatch() {
    }

    static void watch(Process process, int row) {
        synchronized (ExitWatch.class) {
            if (!JVM.registerProcessExitListener(process, row)) {
                return;
            }
            ourWatched++;
            if (ourRunning != null && !ThreadUtil.isOver(ourRunning.myStay)) {
                return;
            }
            ourRunning = new ExitWatch();
            ThreadUtil.createDaemon("VDKAgent-Process", ourRunning).start();
        }
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

    /** Behind the end of a stay the next process brings another thread, which finds these too. */
    private boolean goesOn(int ended) {
        synchronized (ExitWatch.class) {
            ourWatched -= ended;
            if (ourRunning != this || ThreadUtil.isOver(myStay)) {
                return false;
            }
            if (ourWatched <= 0 && ended == 0) {
                ourRunning = null;
            }
            return ourRunning != null;
        }
    }
}
