package com.vandrik.probes.builtin;

/** What the built-in probes share: which rows exist, and what becomes of a probe's own faults. */
final class Rows {
    /** What the agent gives instead of a row: the table is full, or the thread is the agent's. */
    private static final int REFUSED = Integer.MAX_VALUE;

    private Rows() {
    }

    static boolean exists(int row) {
        return row >= 0 && row != REFUSED;
    }

    /**
     * A callback that fails must not fail the method that it stands in. The first failure is told
     * in the log, but for lack of stack or heap, which telling would only make worse.
     */
    static void failed(Throwable failure) {
        if (!(failure instanceof VirtualMachineError)) {
            Outermost.failed(failure);
        }
    }
}
