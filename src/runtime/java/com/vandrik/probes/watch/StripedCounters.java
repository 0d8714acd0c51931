package com.vandrik.probes.watch;

import java.util.concurrent.atomic.AtomicLongArray;

/** A few counters that many threads add to: each stripe has a cache line of its own. */
final class StripedCounters {
    static final int STRIPES = Runtime.getRuntime().availableProcessors() == 1 ? 1 : 4;

    private static final int COUNTERS = 4;
    private static final int LINE = 8;

    private final AtomicLongArray myValues = new AtomicLongArray((STRIPES + 1) * LINE);

    int stripeOf(Thread thread) {
        int hash = System.identityHashCode(thread);
        return (hash ^ hash >>> 8) & STRIPES - 1;
    }

    void add(int stripe, int counter) {
        myValues.getAndIncrement(stripe * LINE + counter);
    }

    long[] sums() {
        long[] sums = new long[COUNTERS];
        for (int stripe = 0; stripe < STRIPES; stripe++) {
            for (int i = 0; i < COUNTERS; i++) {
                sums[i] += myValues.get(stripe * LINE + i);
            }
        }
        return sums;
    }
}
