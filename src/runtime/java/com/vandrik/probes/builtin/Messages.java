package com.vandrik.probes.builtin;

import com.vandrik.probes.StringColumn;
import com.vandrik.probes.Table;

/** The table of messages. The agent's own go there, and those of clients. */
public final class Messages {
    private static final MessageTable TABLE = new MessageTable();

    private Messages() {
    }

    /** Called by native code as well. The detail may be null. */
    public static void message(String category, String message, String detail) {
        if (category == null) {
            throw new RuntimeException("category cannot be null");
        }
        if (message == null) {
            throw new RuntimeException("message cannot be null");
        }
        int row = TABLE.createRow();
        TABLE.myCategory.setValue(row, category);
        TABLE.myMessage.setValue(row, message);
        TABLE.myDetail.setValue(row, detail);
    }

    private static final class MessageTable extends Table {
        final StringColumn myCategory = new StringColumn("Category");
        final StringColumn myMessage = new StringColumn("Message");
        final StringColumn myDetail = new StringColumn("Detail");

        MessageTable() {
            super("Messages", MASK_FOR_POINT_EVENTS);
        }
    }
}
