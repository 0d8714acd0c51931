package com.vandrik.probes.builtin;

import com.vandrik.probes.Table;

/** The row of a call that goes on; what onEnter gives to the other callbacks. */
final class OpenRow {
    private final Table myTable;
    final int myRow;

    OpenRow(Table table, int row) {
        myTable = table;
        myRow = row;
    }

    /** Closes the row if onEnter made one. */
    static void close(Object call) {
        if (call instanceof OpenRow) {
            OpenRow open = (OpenRow) call;
            open.myTable.closeRow(open.myRow);
        }
    }
}
