#include "db/DBTable.h"

#include "DBTestSupport.h"

#include <gtest/gtest.h>

namespace {
typedef DBTable<FrameRecord> FrameTable;

int addRow(FrameTable& table, int stamp) {
    const int index = table.nextIndex();
    table.getRecord(index, true)->stamp = stamp;
    return index;
}

// What a reader sees: indices and stamps of the rows written.
std::string rowsWritten(FrameTable& table, int stamp) {
    const std::string bytes = tableOf(table, stamp);
    std::string rows;
    for (size_t at = 4; at < bytes.size(); at += 24) {
        int words[2];
        memcpy(words, bytes.data() + at, sizeof(words));
        rows += std::to_string(words[0]) + ":" + std::to_string(words[1]) + " ";
    }
    return rows;
}
} // namespace

TEST(DBTable, createdRowIsInvisibleUntilStamped) {
    FrameTable table("frame", 1, 1024);
    EXPECT_EQ(nullptr, table.getRecord(9, false));
    EXPECT_EQ(0, table.getRecord(9, true)->stamp);
    EXPECT_EQ("00 00 00 00", hex(tableOf(table)));
    for (int absent : {9, 0, 5000000, -1}) {
        EXPECT_EQ(0, table.getRecordModificationStamp(absent)) << absent;
    }
    table.setRecordModificationStamp(9, -4);
    EXPECT_EQ(-4, table.getRecordModificationStamp(9));
}

TEST(DBTable, rowIsIndexStampAndFieldsInLittleEndian) {
    FrameTable table("frame", 1, 1024);
    FrameRecord* record = table.getRecord(addRow(table, 0x01020304), true);
    record->parent = 5;
    record->method = 0x0a0b0c0d;
    EXPECT_EQ("01 00 00 00 01 00 00 00 04 03 02 01 05 00 00 00 0D 0C 0B 0A FF FF FF FF FF FF FF FF",
              hex(tableOf(table)));
}

TEST(DBTable, deletedRowsReachReadersThatKnowThemLive) {
    FrameTable table("frame", 1, 1024);
    addRow(table, 3);
    addRow(table, -5);
    addRow(table, 7);
    addRow(table, 0);
    EXPECT_EQ("1:3 2:-5 3:7 ", rowsWritten(table, 0));
    EXPECT_EQ("2:-5 3:7 ", rowsWritten(table, 4));
    EXPECT_EQ("3:7 ", rowsWritten(table, 5));
    EXPECT_EQ("", rowsWritten(table, 7));
    long total = 100;
    EXPECT_STREQ("               frame records=       2/    1280 allocated=   0.0 MB",
                 table.getStatistics(&total).c_str());
    EXPECT_EQ(100 + 5 * 8 + 256 * 20, total);
    // Distant chunks come in ascending order.
    table.setRecordModificationStamp(70000, 8);
    table.setRecordModificationStamp(511, -9);
    EXPECT_EQ("511:-9 70000:8 ", rowsWritten(table, 7));
}
