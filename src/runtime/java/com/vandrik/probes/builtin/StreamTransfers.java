package com.vandrik.probes.builtin;

import com.vandrik.probes.ForeignKeyColumn;
import com.vandrik.probes.IntColumn;
import com.vandrik.probes.Table;

/** Transfers through arrays of bytes. */
final class StreamTransfers extends Transfers {
    final ForeignKeyColumn myMaster;
    final IntColumn myBytes = new IntColumn("Bytes");

    StreamTransfers(String name, Table master) {
        super(name);
        myMaster = new ForeignKeyColumn(master);
    }

    @Override
    void setMaster(int row, int master) {
        myMaster.setValue(row, master);
    }

    @Override
    void setBytes(int row, long bytes) {
        myBytes.setValue(row, (int) bytes);
    }
}
