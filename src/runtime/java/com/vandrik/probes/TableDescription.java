package com.vandrik.probes;

import java.util.HashSet;
import java.util.Set;

/**
 * Builds the text that the database makes a table from: the table's name, the number of columns,
 * then name and type of each column, every item on a line of its own.
 */
final class TableDescription {
    private final int myMaxColumns;
    private final StringBuilder myColumns = new StringBuilder();
    private final Set<String> myNames = new HashSet<String>();

    TableDescription(int maxColumns) {
        myMaxColumns = maxColumns;
    }

    void add(String name, int type) {
        if (!myNames.add(name)) {
            throw new RuntimeException("column with this name already exists: " + name);
        }
        if (myNames.size() > myMaxColumns) {
            throw new RuntimeException("too many columns");
        }
        myColumns.append(name).append('\n').append(type).append('\n');
    }

    int getColumnCount() {
        return myNames.size();
    }

    String getText(String tableName) {
        return tableName + "\n" + myNames.size() + "\n" + myColumns;
    }
}
