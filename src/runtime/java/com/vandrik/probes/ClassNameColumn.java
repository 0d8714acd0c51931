package com.vandrik.probes;

import com.vandrik.runtime.Callback;

/** A column of class names. */
public final class ClassNameColumn extends Column {
    /**
     * A column that is empty until it is set.
     *
     * @param name its heading, one line of text, once in a table
     * @throws RuntimeException if it is null, empty or of several lines
     */
    public ClassNameColumn(String name) {
        super(name);
    }

    @Override
    int getTypeID() {
        return COLUMN_TYPE_CLASS_NAME;
    }

    /**
     * Sets the value in one row.
     *
     * @param row as {@link Table#createRow} gave it
     * @param value the class, which may be null
     * @throws RuntimeException if the column belongs to no table that has had a row
     */
    public void setValue(int row, Class<?> value) {
        if (takes(row)) {
            Callback.setUserTableClassNameColumn(myTableIndex, row, myIndex,
                                                 value == null ? null : value.getName());
        }
    }
}
