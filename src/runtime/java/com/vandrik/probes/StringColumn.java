package com.vandrik.probes;

import com.vandrik.runtime.Callback;

/** A column of texts; a text may be null. */
public final class StringColumn extends Column {
    /**
     * A column that is empty until it is set.
     *
     * @param name its heading, one line of text, once in a table
     * @throws RuntimeException if it is null, empty or of several lines
     */
    public StringColumn(String name) {
        super(name);
    }

    @Override
    int getTypeID() {
        return COLUMN_TYPE_STRING;
    }

    /**
     * Sets the value in one row.
     *
     * @param row as {@link Table#createRow} gave it
     * @param value the text, which may be null
     * @throws RuntimeException if the column belongs to no table that has had a row
     */
    public void setValue(int row, String value) {
        if (takes(row)) {
            Callback.setUserTableStringColumn(myTableIndex, row, myIndex, value);
        }
    }
}
