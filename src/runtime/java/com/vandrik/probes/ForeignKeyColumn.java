package com.vandrik.probes;

import com.vandrik.runtime.Callback;

/** A column that refers to rows of a master table. */
public final class ForeignKeyColumn extends Column {
    private final Table myMaster;

    /**
     * A column that is named for its master table. A table has at most one.
     *
     * @param master the table that the rows belong to
     * @throws RuntimeException if it is null
     */
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

    /**
     * Tells what the column was made with.
     *
     * @return the table that the rows belong to
     */
    public Table getMaster() {
        return myMaster;
    }

    @Override
    int getTypeID() {
        return COLUMN_TYPE_FOREIGN_KEY;
    }

    /**
     * Makes a row belong to one of the master table. If that is none, the row belongs to none.
     *
     * @param row as {@link Table#createRow} gave it
     * @param masterRow a row of the master table
     * @throws RuntimeException if the column belongs to no table that has had a row
     */
    public void setValue(int row, int masterRow) {
        if (takes(row)) {
            Callback.setUserTableForeignKeyColumn(myTableIndex, row, myIndex, masterRow);
        }
    }
}
