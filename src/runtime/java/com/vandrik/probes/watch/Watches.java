package com.vandrik.probes.watch;

import com.vandrik.probes.JVM;
import com.vandrik.runtime.Callback;
import com.vandrik.util.ThreadUtil;

/**
 * The watches that run. Their callbacks end here, on threads of the application, from any place of
 * its code, java.lang.String included: they take no lock, and nothing leaves them. A thread of the
 * agent takes out what nobody wants any more, and ends behind the last watch.
 */
public final class Watches {
    private static final int MOST_WATCHES = 16; // a power of two
    private static final int LOOK_MS = 100;
    private static final long LONG_SERVICE_NS = 1000000000L;

    /** By place; numbers are not used again. */
    private static final Watch[] ourWatches = new Watch[MOST_WATCHES];

    /** Since when one connection is served, by the nano clock; 0: none is. */
    private static volatile long ourServedSince;

    // All below is guarded by the class; callbacks do without.
    private static int ourLastID;
    private static boolean ourIsLooking;

    private Watches() {
    }

    /** A callback: the method returns. Start 0: onEnter was left out. */
    public static void returned(int place, long start, Class<?> type, String method,
                                String signature, Object object, Object[] arguments,
                                Object result) {
        Watch watch = ourWatches[place];
        if (watch != null && start != 0) {
            watch.ended(start, type, method, signature, object, arguments, result, null);
        }
    }

    /** A callback: an exception leaves the method. */
    public static void thrown(int place, long start, Class<?> type, String method, String signature,
                              Object object, Object[] arguments, Throwable exception) {
        Watch watch = ourWatches[place];
        if (watch != null && start != 0) {
            watch.ended(start, type, method, signature, object, arguments, null, exception);
        }
    }

    /** Returns when the loaded classes are woven. What fails has a text for the user. */
    public static Watch start(WatchSettings settings) {
        if (!JVM.isLivePhase()) {
            throw new IllegalStateException("watches run only while the application does");
        }
        Watch watch = add(settings);
        String failure = "the probe of the watch could not be registered";
        try {
            byte[][] classes = {WatchProbe.write(watch.id, settings)};
            failure = Callback.registerProbesByBytecode(classes, true, false);
        } finally {
            if (failure != null) {
                stop(watch);
            }
        }
        if (failure != null) {
            throw new IllegalStateException(failure);
        }
        watch.begin(Callback.getWovenClassCount(WatchProbe.nameOf(watch.id, settings)));
        look();
        return watch;
    }

    private static synchronized Watch add(WatchSettings settings) {
        for (int i = 0; i < MOST_WATCHES; i++) {
            int id = ourLastID + 1 + i;
            if (ourWatches[placeOf(id)] == null) {
                ourLastID = id;
                Watch watch = new Watch(id, settings);
                ourWatches[placeOf(id)] = watch;
                return watch;
            }
        }
        throw new IllegalStateException(MOST_WATCHES + " watches run already");
    }

    /** Null if there is none. */
    public static synchronized Watch find(int id) {
        Watch watch = ourWatches[placeOf(id)];
        return watch != null && watch.id == id && !watch.isStopped() ? watch : null;
    }

    /** Its place is free when the calls are taken out: the next one there has the same class. */
    public static void stop(Watch watch) {
        synchronized (watch) {
            watch.stop();
            remove(watch);
        }
    }

    /** For a detach. */
    public static void stopAll() {
        for (int i = 0; i < MOST_WATCHES; i++) {
            Watch watch = ourWatches[i];
            if (watch != null) {
                stop(watch);
            }
        }
    }

    private static synchronized void remove(Watch watch) {
        if (ourWatches[placeOf(watch.id)] == watch) {
            ourWatches[placeOf(watch.id)] = null;
        }
    }

    static int placeOf(int id) {
        return id & MOST_WATCHES - 1;
    }

    private static synchronized void look() {
        if (ourIsLooking) {
            return;
        }
        ourIsLooking = true;
        ThreadUtil
                .createDaemon("VDKAgent-Watch",
                              new Runnable() {
                                  @Override
                                  public void run() {
                                      lookUntilNoneIsLeft();
                                  }
                              })
                .start();
    }

    private static void lookUntilNoneIsLeft() {
        while (isAnyLeft()) {
            ThreadUtil.sleep(LOOK_MS);
            for (int i = 0; i < MOST_WATCHES; i++) {
                Watch watch = ourWatches[i];
                if (watch != null) {
                    lookAfter(watch);
                }
            }
        }
    }

    private static void lookAfter(Watch watch) {
        try {
            if (watch.isStopped()) {
                stop(watch);
            } else if (isServingForLong()) {
                watch.extendLease(); // whoever wants to read it waits
            } else if (watch.hasLeaseRunOut()) {
                Callback.messageToLogFile("Watch " + watch.id + " ends: nobody reads it");
                stop(watch);
            } else if (watch.isComplete()) {
                watch.takeOut();
            }
        } catch (Throwable e) {
            // memory may be short for now; the next look tries again
        }
    }

    /** The one thread that serves connections begins with one, or is done with it. */
    public static void noteServing(boolean begins) {
        ourServedSince = begins ? System.nanoTime() | 1 : 0;
    }

    private static boolean isServingForLong() {
        long since = ourServedSince;
        return since != 0 && System.nanoTime() - since > LONG_SERVICE_NS;
    }

    private static synchronized boolean isAnyLeft() {
        for (int i = 0; i < MOST_WATCHES; i++) {
            if (ourWatches[i] != null) {
                return true;
            }
        }
        ourIsLooking = false;
        return false;
    }
}
