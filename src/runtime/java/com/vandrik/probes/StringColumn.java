package com.vandrik.probes;

import com.vandrik.runtime.Callback;

/** A column of texts; a text may be null. */
public final class StringColumn extends Column {
    public StringColumn(String name) {
        super(name);
    }

    @Override
    int getTypeID() {
        return COLUMN_TYPE_STRING;
    }

    public void setValue(int row, String value) {
        checkTable();
        Callback.setUserTableStringColumn(myTableIndex, row, myIndex, value);
    }
}
