package com.vandrik.runtime;

/** Runs {@link Calibration} with and without tracing and compares. */
final class Calibrator {
    private static final int ROUNDS = 8;

    /** Averages don't get better after this CPU time; where clocks are slow a round takes long. */
    private static final long ENOUGH_NS = 1000000000L;

    private Calibrator() {
    }

    /**
     * The cost of a traced call in nanoseconds. Runs on the calibration thread, which clears only
     * what it recorded itself.
     */
    static long calibrateImpl() {
        Callback.messageToLogFile("Calibration: starting...");
        Calibration.Counter plain = new Calibration.Counter();
        run(plain);
        Calibration.Counter traced = new Calibration.Counter();
        Callback.startCalibrating();
        try {
            run(traced);
        } finally {
            Callback.stopCPUProfiling(false);
            Callback.clearCPUData(false);
        }
        long result = Math.max(getAverage(traced) - getAverage(plain), 0);
        Callback.messageToLogFile("Calibration: completed ( " + describe(plain) + " " +
                                  describe(traced) + " )");
        return result;
    }

    private static void run(Calibration.Counter counter) {
        for (int i = 0; i < ROUNDS && counter.myTimeNs < ENOUGH_NS; i++) {
            Calibration.performOperation(counter);
        }
    }

    private static long getAverage(Calibration.Counter counter) {
        return counter.myTimeNs / counter.myCount;
    }

    private static String describe(Calibration.Counter counter) {
        return counter.myTimeNs + "/" + counter.myCount + "=" + getAverage(counter);
    }
}
