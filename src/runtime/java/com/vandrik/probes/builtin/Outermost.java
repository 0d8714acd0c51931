package com.vandrik.probes.builtin;

import com.vandrik.probes.JVM;
import com.vandrik.runtime.Callback;

/**
 * Tells the outermost call of a kind on a thread from those that it makes itself: a pool's wrapper
 * calls the driver's object, and only the application's call counts.
 */
final class Outermost {
    /** What onEnter gives for a call within another one. */
    static final Object NESTED = new Object();

    private static volatile boolean ourIsLive;
    private static volatile boolean ourHasFailed;

    private final ThreadLocal<int[]> myDepth = new ThreadLocal<int[]>() {
        @Override
        protected int[] initialValue() {
            return new int[1];
        }
    };

    /** Whether a probe may work at all: not while the JVM starts. */
    static boolean isLive() {
        if (!ourIsLive) {
            ourIsLive = JVM.isLivePhase();
        }
        return ourIsLive;
    }

    /** A call begins. True for the outermost one. */
    boolean enter() {
        return myDepth.get()[0]++ == 0;
    }

    void leave() {
        int[] depth = myDepth.get();
        if (depth[0] > 0) {
            depth[0]--;
        }
    }

    /** A probe failed: the application must not hear of it, the log does once. */
    static void failed(Throwable failure) {
        if (!ourHasFailed) {
            ourHasFailed = true;
            try {
                Callback.messageToLogFile("A built-in probe failed: " + failure);
            } catch (Throwable again) {
                ourHasFailed = true; // no stack or no memory is left for it
            }
        }
    }
}
