package com.vandrik.probes;

import com.vandrik.runtime.Callback;

/** A column of class names. */
public final class ClassNameColumn extends Column {
    public ClassNameColumn(String name) {
        super(name);
    }

    @Override
    int getTypeID() {
        return COLUMN_TYPE_CLASS_NAME;
    }

    public void setValue(int row, Class<?> value) {
        checkTable();
        Callback.setUserTableClassNameColumn(myTableIndex, row, myIndex,
                                             value == null ? null : value.getName());
    }
}
