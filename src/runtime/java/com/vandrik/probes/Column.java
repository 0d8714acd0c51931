package com.vandrik.probes;

/**
 * A column of a {@link Table}, one of a fixed set of kinds. It is assigned to a field of the table
 * and belongs to that table alone.
 */
public abstract class Column {
    // Keep in sync with db/UserTable.h.
    static final int COLUMN_TYPE_INT = 0;
    static final int COLUMN_TYPE_LONG = 1;
    static final int COLUMN_TYPE_STRING = 2;
    static final int COLUMN_TYPE_FOREIGN_KEY = 3;
    static final int COLUMN_TYPE_CLASS_NAME = 4;

    private static final int NOT_ATTACHED = -1;

    final String myName;

    /** The table's number, 0 until the table exists in the database. */
    volatile int myTableIndex;

    int myIndex = NOT_ATTACHED;

    Column(String name) {
        if (name == null) {
            throw new RuntimeException("column name must not be null");
        }
        if (name.isEmpty() || name.indexOf('\n') >= 0) {
            throw new RuntimeException("column name must be one line of text");
        }
        myName = name;
    }

    abstract int getTypeID();

    /** Fails if the column belongs to a table already. */
    final void assignToTable(int columnIndex) {
        if (myIndex != NOT_ATTACHED) {
            throw new RuntimeException("Cannot add column instance to several tables");
        }
        myIndex = columnIndex;
    }

    /** Makes a column of a table that could not be created free again. */
    final void detach() {
        myIndex = NOT_ATTACHED;
    }

    /** Whether there is a row to set a value in. Fails if the column has no table yet. */
    final boolean takes(int row) {
        if (myTableIndex == 0) {
            throw new RuntimeException(
                    "Column " + myName + " is not attached to a table;"
                    + " ensure that (a) column is assigned to a field of Table class"
                    + " and (b) a row of that table was created before the column is used");
        }
        return row != Table.REFUSED_ROW;
    }
}
