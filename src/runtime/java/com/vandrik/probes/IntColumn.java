package com.vandrik.probes;

import com.vandrik.runtime.Callback;

/** A column of 32-bit numbers. */
public final class IntColumn extends Column {
    /**
     * A column that is 0 until it is set.
     *
     * @param name its heading, one line of text, once in a table
     * @throws RuntimeException if it is null, empty or of several lines
     */
    public IntColumn(String name) {
        super(name);
    }

    @Override
    int getTypeID() {
        return COLUMN_TYPE_INT;
    }

    /**
     * Sets the value in one row.
     *
     * @param row as {@link Table#createRow} gave it
     * @param value any number
     * @throws RuntimeException if the column belongs to no table that has had a row
     */
    public void setValue(int row, int value) {
        if (takes(row)) {
            Callback.setUserTableIntColumn(myTableIndex, row, myIndex, value);
        }
    }
}
