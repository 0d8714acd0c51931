package com.vandrik.probes.builtin;

import com.vandrik.probes.ObjectRowIndexMap;
import com.vandrik.probes.Table;

/**
 * A table of transfers of bytes: each belongs to the row of a file, a connection or a process. A
 * row is made when the transfer begins and gets its bytes when it ends: 0 if there are no more, and
 * if it fails.
 */
abstract class Transfers extends Table {
    Transfers(String name) {
        super(name, MASK_FOR_SINGLE_METHOD_CALL_LASTING_EVENTS);
    }

    abstract void setMaster(int row, int master);

    abstract void setBytes(int row, long bytes);

    /**
     * The row of a transfer that begins; NO_ROW if the object has no row in the map, or if the
     * transfer is part of another one of this object. No object has a row outside the live phase.
     */
    final int begin(Object object, ObjectRowIndexMap masters) {
        return begin(object, masters.get(object));
    }

    final int begin(Object object, int master) {
        if (!Rows.exists(master) || Nesting.contains(object)) {
            return NO_ROW;
        }
        int row = createRow();
        if (Rows.exists(row)) {
            setMaster(row, master);
        }
        Nesting.enter(object, this, row);
        return row;
    }

    /** Ends what {@link #begin} gave; what did not begin doesn't end. */
    static void end(Object object, int row, long bytes) {
        end(object, row, null, bytes);
    }

    /** The same with a partner whose transfer began right behind. */
    static void end(Object object, int row, Object partner, long bytes) {
        if (row == NO_ROW) {
            return;
        }
        try {
            Nesting.end(object, partner, bytes);
        } catch (Exception | LinkageError | VirtualMachineError e) {
            Rows.failed(e);
        }
    }

    final void finish(int row, long bytes) {
        if (Rows.exists(row)) {
            setBytes(row, Math.max(bytes, 0));
            closeRow(row);
        }
    }
}
