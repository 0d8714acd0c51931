package com.vandrik.probes.builtin;

/**
 * What the current thread transfers right now, the outermost first. One transfer often passes
 * several woven methods of an object, such as {@code read} of a file that calls {@code readBytes}:
 * the outermost makes the row.
 */
final class Nesting {
    private static final int MAX_DEPTH = 16;

    private static final ThreadLocal<Nesting> OURS = new ThreadLocal<Nesting>();

    private final Object[] myObjects = new Object[MAX_DEPTH];
    private final Transfers[] myTables = new Transfers[MAX_DEPTH];
    private final int[] myRows = new int[MAX_DEPTH];
    private int myDepth;

    private Nesting() {
    }

    static boolean contains(Object object) {
        Nesting nesting = OURS.get();
        return nesting != null && nesting.find(object) >= 0;
    }

    static void enter(Object object, Transfers table, int row) {
        Nesting nesting = OURS.get();
        if (nesting == null) {
            nesting = new Nesting();
            OURS.set(nesting);
        }
        if (nesting.myDepth == MAX_DEPTH) {
            // Calls that ended without their callback, for lack of stack.
            nesting.cut(0);
        }
        int depth = nesting.myDepth;
        nesting.myObjects[depth] = object;
        nesting.myTables[depth] = table;
        nesting.myRows[depth] = row;
        nesting.myDepth = depth + 1;
    }

    /** Ends the row of the object, and that of the partner which entered right behind it. */
    static void end(Object object, Object partner, long bytes) {
        Nesting nesting = OURS.get();
        int index = nesting == null ? -1 : nesting.find(object);
        if (index < 0) {
            return;
        }
        int next = index + 1;
        Transfers table = nesting.myTables[index];
        Transfers partnersTable = null;
        int row = nesting.myRows[index];
        int partnersRow = 0;
        if (next < nesting.myDepth && nesting.myObjects[next] == partner) {
            partnersTable = nesting.myTables[next];
            partnersRow = nesting.myRows[next];
        }
        nesting.cut(index);
        table.finish(row, bytes);
        if (partnersTable != null) {
            partnersTable.finish(partnersRow, bytes);
        }
    }

    private int find(Object object) {
        for (int i = myDepth - 1; i >= 0; i--) {
            if (myObjects[i] == object) {
                return i;
            }
        }
        return -1;
    }

    private void cut(int depth) {
        while (myDepth > depth) {
            myDepth--;
            myObjects[myDepth] = null;
            myTables[myDepth] = null;
        }
    }
}
