package com.vandrik.probes;

import com.vandrik.runtime.Callback;

/** A column of 32-bit numbers. */
public final class IntColumn extends Column {
    public IntColumn(String name) {
        super(name);
    }

    @Override
    int getTypeID() {
        return COLUMN_TYPE_INT;
    }

    public void setValue(int row, int value) {
        checkTable();
        Callback.setUserTableIntColumn(myTableIndex, row, myIndex, value);
    }
}
