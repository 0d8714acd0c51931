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

    /** Null before the first work, and behind the end of a stay. */
    private Thread myThread;

    BackgroundQueue(String threadName, int capacity) {
        myThreadName = threadName;
        myWaiting = new ArrayBlockingQueue<Runnable>(capacity);
    }

    /** False if too much waits already. The thread comes with the first work. */
    synchronized boolean add(Runnable work) {
        if (myThread == null) {
            final int stay = ThreadUtil.getStay();
            Thread thread = ThreadUtil.createDaemon(myThreadName, new Runnable() {
                @Override
                public void run() {
                    work(stay);
                }
            });
            thread.start();
            myThread = thread;
        }
        myPending.incrementAndGet();
        boolean isTaken = myWaiting.offer(work);
        if (!isTaken) {
            myPending.decrementAndGet();
        }
        return isTaken;
    }

    private void work(int stay) {
        while (!isOver(stay)) {
            try {
                Runnable work = myWaiting.take();
                try {
                    work.run();
                } finally {
                    myPending.decrementAndGet();
                }
            } catch (InterruptedException expected) {
                // the stay is over
            } catch (Throwable failure) {
                Action.failed(failure);
            }
        }
    }

    /** With the stay goes what waits; work of the next one gets a thread of its own. */
    private synchronized boolean isOver(int stay) {
        if (!ThreadUtil.isOver(stay)) {
            return false;
        }
        if (myThread == Thread.currentThread()) {
            myThread = null;
            while (myWaiting.poll() != null) {
                myPending.decrementAndGet();
            }
        }
        return true;
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
