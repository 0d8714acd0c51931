package com.vandrik.probes;

import com.vandrik.runtime.Callback;

/** A column of 64-bit numbers. */
public final class LongColumn extends Column {
    /**
     * A column that is 0 until it is set.
     *
     * @param name its heading, one line of text, once in a table
     * @throws RuntimeException if it is null, empty or of several lines
     */
    public LongColumn(String name) {
        super(name);
    }

    @Override
    int getTypeID() {
        return COLUMN_TYPE_LONG;
    }

    /**
     * Sets the value in one row.
     *
     * @param row as {@link Table#createRow} gave it
     * @param value any number
     * @throws RuntimeException if the column belongs to no table that has had a row
     */
    public void setValue(int row, long value) {
        if (takes(row)) {
            Callback.setUserTableLongColumn(myTableIndex, row, myIndex, value);
        }
    }
}
