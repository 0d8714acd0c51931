package com.vandrik.probes.watch;

/** Buckets of durations, eight for each power of two; docs/protocol.md tells their bounds. */
final class Buckets {
    static final int COUNT = 336;

    private static final int EXACT = 16;
    private static final int LAST_POWER = 43;

    private Buckets() {
    }

    static int of(long ns) {
        if (ns < EXACT) {
            return (int) ns;
        }
        int power = 63 - Long.numberOfLeadingZeros(ns);
        if (power > LAST_POWER) {
            return COUNT - 1;
        }
        return EXACT + (power - 4) * 8 + (int) (ns >> power - 3 & 7);
    }
}
