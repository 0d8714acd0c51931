package com.vandrik.runtime;

/**
 * The work that is measured with and without tracing, to know what a traced call costs. It is the
 * one class of the agent that is instrumented like the application's, so it holds nothing else.
 */
public final class Calibration {
    private static final int LENGTH = 1500;

    private Calibration() {
    }

    /** What was measured. */
    public static final class Counter {
        /** Calls made. */
        public long myCount;

        /** CPU time of the calling thread for them. */
        public long myTimeNs;
    }

    /** Sorts an array that is in the worst order, counting and timing the calls that it takes. */
    public static void performOperation(Counter counter) {
        int[] values = new int[LENGTH];
        for (int i = 0; i < LENGTH; i++) {
            values[i] = LENGTH - i;
        }
        long start = Callback.getCurrentThreadCPUTimeNs();
        sort(values, counter);
        counter.myTimeNs += Callback.getCurrentThreadCPUTimeNs() - start;
    }

    private static void sort(int[] values, Counter counter) {
        counter.myCount++;
        for (int end = values.length - 1; end > 0; end--) {
            for (int i = 0; i < end; i++) {
                if (values[i] > values[i + 1]) {
                    swap(values, i, counter);
                }
            }
        }
    }

    private static void swap(int[] values, int i, Counter counter) {
        counter.myCount++;
        int value = values[i];
        values[i] = values[i + 1];
        values[i + 1] = value;
    }
}
