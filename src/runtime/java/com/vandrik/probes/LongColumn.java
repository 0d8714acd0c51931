package com.vandrik.probes;

import com.vandrik.runtime.Callback;

/** A column of 64-bit numbers. */
public final class LongColumn extends Column {
    public LongColumn(String name) {
        super(name);
    }

    @Override
    int getTypeID() {
        return COLUMN_TYPE_LONG;
    }

    public void setValue(int row, long value) {
        checkTable();
        Callback.setUserTableLongColumn(myTableIndex, row, myIndex, value);
    }
}
