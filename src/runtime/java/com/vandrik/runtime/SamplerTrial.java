package com.vandrik.runtime;

/** What a thread runs to find out whether signals can sample it. */
final class SamplerTrial {
    private SamplerTrial() {
    }

    static int spin(int rounds) {
        int value = rounds;
        for (int i = 0; i < rounds; i++) {
            value = value * 31 + i;
        }
        return value;
    }
}
