package com.vandrik.probes.triggers.actions;

import com.vandrik.util.ThreadUtil;
import java.util.concurrent.ArrayBlockingQueue;
import java.util.concurrent.BlockingQueue;
import java.util.concurrent.atomic.AtomicInteger;

/** Work that would hold up whoever asks for it, done one after the other by a thread of its own. */
final class BackgroundQueue {
    private static final int STEP_MS = 20;

    private final String myThreadName;
    private final BlockingQueue<Runnable> myWaiting;
    private final AtomicInteger myPending = new AtomicInteger();
    private boolean myIsStarted;

    BackgroundQueue(String threadName, int capacity) {
        myThreadName = threadName;
        myWaiting = new ArrayBlockingQueue<Runnable>(capacity);
    }

    /** False if too much waits already. The thread comes with the first work. */
    synchronized boolean add(Runnable work) {
        if (!myIsStarted) {
            ThreadUtil
                    .createDaemon(myThreadName,
                                  new Runnable() {
                                      @Override
                                      public void run() {
                                          workForEver();
                                      }
                                  })
                    .start();
            myIsStarted = true;
        }
        myPending.incrementAndGet();
        boolean isTaken = myWaiting.offer(work);
        if (!isTaken) {
            myPending.decrementAndGet();
        }
        return isTaken;
    }

    private void workForEver() {
        while (true) {
            try {
                Runnable work = myWaiting.take();
                try {
                    work.run();
                } finally {
                    myPending.decrementAndGet();
                }
            } catch (Throwable failure) {
                Action.failed(failure);
            }
        }
    }

    /** Until all work is done, or so long. Gives how long it was. */
    long awaitEmpty(long limitMs) {
        long waitedMs = 0;
        for (; myPending.get() != 0 && waitedMs < limitMs; waitedMs += STEP_MS) {
            ThreadUtil.sleep(STEP_MS);
        }
        return waitedMs;
    }
}
