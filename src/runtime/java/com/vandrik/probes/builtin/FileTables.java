package com.vandrik.probes.builtin;

import com.vandrik.probes.JVM;
import com.vandrik.probes.ObjectRowIndexMap;
import com.vandrik.probes.StringColumn;
import com.vandrik.probes.Table;

/** The files of one kind: the tables of those that were opened and of those that were not. */
final class FileTables {
    /** The open ones, by stream, random access file or channel. */
    final ObjectRowIndexMap myRows = new ObjectRowIndexMap();

    final OpenFiles myOpened;
    private final FailedFiles myFailed;

    FileTables(String kind) {
        myOpened = new OpenFiles(kind);
        myFailed = new FailedFiles("Failed " + kind);
    }

    /** Gives the row, which need not exist. */
    int opened(Object file, String name) {
        if (!JVM.isLivePhase()) {
            return Table.NO_ROW;
        }
        int row = myOpened.createRow();
        if (Rows.exists(row)) {
            myOpened.myName.setValue(row, name);
            myRows.put(file, row);
        }
        return row;
    }

    void failed(String name) {
        if (!JVM.isLivePhase()) {
            return;
        }
        int row = myFailed.createRow();
        if (Rows.exists(row)) {
            myFailed.myName.setValue(row, name);
        }
    }

    void closed(Object file) {
        if (!JVM.isLivePhase()) {
            return;
        }
        int row = myRows.remove(file);
        if (Rows.exists(row)) {
            myOpened.closeRow(row);
        }
    }

    static final class OpenFiles extends Table {
        final StringColumn myName = new StringColumn("File Name");

        OpenFiles(String name) {
            super(name, MASK_FOR_GENERIC_LASTING_EVENTS);
        }
    }

    static final class FailedFiles extends Table {
        final StringColumn myName = new StringColumn("File Name");

        FailedFiles(String name) {
            super(name, MASK_FOR_POINT_EVENTS);
        }
    }
}
