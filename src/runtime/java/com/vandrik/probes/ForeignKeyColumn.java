package com.vandrik.probes;

import com.vandrik.runtime.Callback;

/** A column that refers to rows of a master table. */
public final class ForeignKeyColumn extends Column {
    private final Table myMaster;

    /** The column is named for its master table. */
    public ForeignKeyColumn(Table master) {
        super(nameOf(master));
        myMaster = master;
    }

    private static String nameOf(Table master) {
        if (master == null) {
            throw new RuntimeException("master table must not be null");
        }
        return master.getName();
    }

    public Table getMaster() {
        return myMaster;
    }

    @Override
    int getTypeID() {
        return COLUMN_TYPE_FOREIGN_KEY;
    }

    public void setValue(int row, int masterRow) {
        checkTable();
        Callback.setUserTableForeignKeyColumn(myTableIndex, row, myIndex, masterRow);
    }
}
