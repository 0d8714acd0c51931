package com.vandrik.probes.builtin;

import com.vandrik.probes.ForeignKeyColumn;
import com.vandrik.probes.LongColumn;
import com.vandrik.probes.Table;

/** Transfers through channels. */
final class ChannelTransfers extends Transfers {
    final ForeignKeyColumn myMaster;
    final LongColumn myBytes = new LongColumn("Bytes");

    ChannelTransfers(String name, Table master) {
        super(name);
        myMaster = new ForeignKeyColumn(master);
    }

    @Override
    void setMaster(int row, int master) {
        myMaster.setValue(row, master);
    }

    @Override
    void setBytes(int row, long bytes) {
        myBytes.setValue(row, bytes);
    }
}
