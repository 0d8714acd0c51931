package com.vandrik.probes.watch;

import com.vandrik.runtime.Callback;
import com.vandrik.util.ThreadUtil;
import java.util.ArrayList;
import java.util.List;
import java.util.concurrent.ConcurrentLinkedQueue;
import java.util.concurrent.atomic.AtomicBoolean;
import java.util.concurrent.atomic.AtomicInteger;
import java.util.concurrent.atomic.AtomicLong;

/**
 * What one watch has seen. Threads of the application count and, if they find room, print their
 * call and leave it in the queue; the thread that serves clients takes it out.
 */
public final class Watch {
    private static final int CALLS = 0;
    private static final int MATCHED = 1;
    private static final int DROPPED = 2;
    private static final int FAILED = 3;

    final int id;
    private final WatchSettings mySettings;
    private final Condition myWhere;
    private final StripedCounters myCounters = new StripedCounters();
    private final CallSums mySums;

    private final ConcurrentLinkedQueue<WatchEvent> myEvents =
            new ConcurrentLinkedQueue<WatchEvent>();
    /** Events in the queue, and those that are being printed for it. */
    private final AtomicInteger myWaiting = new AtomicInteger();
    private final AtomicLong myTaken = new AtomicLong();

    private final AtomicBoolean myIsWoven = new AtomicBoolean(true);
    private volatile boolean myIsComplete;
    private volatile boolean myIsStopped;
    private final long myMadeAt = System.nanoTime();
    private volatile boolean myHasBegun;
    private volatile long myReadAt;
    private int myClasses;

    Watch(int id, WatchSettings settings) {
        this.id = id;
        mySettings = settings;
        myWhere = settings.where;
        mySums = settings.has(WatchSettings.SUMS) ? new CallSums() : null;
    }

    void begin(int classes) {
        myClasses = classes;
        extendLease();
        myHasBegun = true;
    }

    public int getID() {
        return id;
    }

    public int getClassCount() {
        return myClasses;
    }

    /** On a thread of the application. */
    void ended(long start, Class<?> type, String method, String signature, Object object,
               Object[] arguments, Object result, Throwable exception) {
        // A call that began earlier may be one of the watch that had the class of the probe before.
        if (myIsComplete || myIsStopped || start - myMadeAt < 0) {
            return;
        }
        try {
            long duration = Math.max(0, System.nanoTime() - start);
            Thread thread = Thread.currentThread();
            if (!ThreadUtil.isAgentThread(thread)) {
                int stripe = myCounters.stripeOf(thread);
                myCounters.add(stripe, CALLS);
                if (duration >= mySettings.shortestNs) {
                    WatchedCall call = new WatchedCall(type, method, signature, object, arguments,
                                                       result, exception, duration, thread);
                    if (myWhere == null || myWhere.holds(call)) {
                        matched(call, stripe);
                    }
                }
            }
        } catch (Throwable e) {
            failed();
        }
    }

    private void failed() {
        try {
            myCounters.add(0, FAILED);
        } catch (Throwable e) {
            // the stack of the application is at its end; it goes on as without the watch
        }
    }

    private void matched(WatchedCall call, int stripe) {
        if (mySums != null) {
            myCounters.add(stripe, MATCHED);
            if (!mySums.add(call, stripe)) {
                myCounters.add(stripe, DROPPED);
            }
            return;
        }
        if (!claim()) {
            myCounters.add(stripe, MATCHED);
            myCounters.add(stripe, DROPPED);
            return;
        }
        boolean isQueued = false;
        try {
            long number = myTaken.incrementAndGet();
            if (mySettings.mostEvents > 0 && number >= mySettings.mostEvents) {
                myIsComplete = true;
            }
            if (mySettings.mostEvents == 0 || number <= mySettings.mostEvents) {
                myCounters.add(stripe, MATCHED);
                isQueued = myEvents.offer(new WatchEvent(number, call, mySettings));
            }
        } finally {
            if (!isQueued) {
                myWaiting.decrementAndGet();
            }
        }
    }

    /** A place among the events that may wait. */
    private boolean claim() {
        int waiting = myWaiting.get();
        while (waiting < mySettings.room) {
            if (myWaiting.compareAndSet(waiting, waiting + 1)) {
                return true;
            }
            waiting = myWaiting.get();
        }
        return false;
    }

    /** Takes out what waits, up to a number. */
    public List<WatchEvent> take(int most) {
        extendLease();
        List<WatchEvent> events = new ArrayList<WatchEvent>();
        while (events.size() < most) {
            WatchEvent event = myEvents.poll();
            if (event == null) {
                break;
            }
            myWaiting.decrementAndGet();
            events.add(event);
        }
        return events;
    }

    /** Null unless sums are wanted. */
    public CallSums getSums() {
        return mySums;
    }

    /** Calls, matched, dropped and failed ones. */
    public long[] getCounts() {
        return myCounters.sums();
    }

    public int getWaiting() {
        return myWaiting.get();
    }

    public boolean isComplete() {
        return myIsComplete;
    }

    boolean isStopped() {
        return myIsStopped;
    }

    void stop() {
        myIsStopped = true;
        takeOut();
    }

    void extendLease() {
        myReadAt = System.nanoTime();
    }

    boolean hasLeaseRunOut() {
        return myHasBegun && System.nanoTime() - myReadAt > mySettings.leaseMs * 1000000L;
    }

    /** Takes the calls out of the classes, once. */
    void takeOut() {
        if (!myIsWoven.getAndSet(false)) {
            return;
        }
        boolean isDone = false;
        try {
            Callback.unregisterProbes(new String[] {WatchProbe.nameOf(id, mySettings)});
            isDone = true;
        } finally {
            if (!isDone) {
                myIsWoven.set(true);
            }
        }
    }
}
