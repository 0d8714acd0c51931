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

std::string written(AbstractTable& table, int stamp) {
    MemoryWriter writer;
    Progress progress;
    table.writeTable(writer, stamp, 0, 0, &progress);
    return hex(writer.take());
}

// What a reader sees: indices and stamps of the rows written.
std::string rowsWritten(FrameTable& table, int stamp) {
    MemoryWriter writer;
    Progress progress;
    table.writeTable(writer, stamp, 0, 0, &progress);
    const std::string bytes = writer.take();
    std::string rows;
    for (size_t at = 4; at < bytes.size(); at += 24) {
        int words[2];
        memcpy(words, bytes.data() + at, sizeof(words));
        rows += std::to_string(words[0]) + ":" + std::to_string(words[1]) + " ";
    }
    return rows;
}
} // namespace

TEST(DBTable, emptyTableWritesZeroAlone) {
    FrameTable table("frame", 1, 1024);
    EXPECT_EQ("00 00 00 00", written(table, 0));
}

TEST(DBTable, rowIsIndexStampAndFieldsInLittleEndian) {
    FrameTable table("frame", 1, 1024);
    FrameRecord* record = table.getRecord(addRow(table, 0x01020304), true);
    record->parent = 5;
    record->method = 0x0a0b0c0d;
    EXPECT_EQ("01 00 00 00 01 00 00 00 04 03 02 01 05 00 00 00 0D 0C 0B 0A FF FF FF FF FF FF FF FF",
              written(table, 0));
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
}

TEST(DBTable, rowsOfDistantChunksComeInAscendingOrder) {
    FrameTable table("frame", 0, 1);
    table.getRecord(70000, true)->stamp = 1;
    table.getRecord(3, true)->stamp = 1;
    table.getRecord(511, true)->stamp = -1;
    EXPECT_EQ("3:1 511:-1 70000:1 ", rowsWritten(table, 0));
}

TEST(DBTable, createdRowIsInvisibleUntilStamped) {
    FrameTable table("frame", 1, 1024);
    EXPECT_EQ(nullptr, table.getRecord(9, false));
    FrameRecord* record = table.getRecord(9, true);
    EXPECT_EQ(0, record->stamp);
    EXPECT_EQ("00 00 00 00", written(table, 0));
    EXPECT_EQ(0, table.getRecordModificationStamp(9));
}

TEST(DBTable, stampOfAbsentRowsIsZero) {
    FrameTable table("frame", 1, 1024);
    EXPECT_EQ(0, table.getRecordModificationStamp(0));
    EXPECT_EQ(0, table.getRecordModificationStamp(5000000));
    EXPECT_EQ(0, table.getRecordModificationStamp(-1));
    table.setRecordModificationStamp(2000, -4);
    EXPECT_EQ(-4, table.getRecordModificationStamp(2000));
}

TEST(DBTable, minIndexLooksAtChunksOnly) {
    FrameTable table("frame", 1, 1024);
    EXPECT_EQ(-1, table.getMinIndex());
    table.getRecord(2 * 256 + 77, true);
    EXPECT_EQ(512, table.getMinIndex());
}

TEST(DBTable, clearStartsAgainButKeepsTheCapacity) {
    FrameTable table("frame", 1, 1024);
    for (int i = 0; i < 3000; i++) {
        addRow(table, 1);
    }
    const int capacity = table.getCapacity();
    table.releaseIndex(17);
    table.clearTable();
    EXPECT_EQ(1, table.nextIndex());
    EXPECT_EQ(capacity, table.getCapacity());
    EXPECT_EQ(-1, table.getMinIndex());
    EXPECT_EQ(nullptr, table.getRecord(1, false));
}

TEST(DBTable, misuseIsAnInternalError) {
    EXPECT_THROW(FrameTable("frame", 1, 0), VDKRuntimeException);
    FrameTable table("frame", 1, 1024);
    EXPECT_THROW(table.getRecord(-1, false), VDKRuntimeException);
    EXPECT_THROW(table.setRecordModificationStamp(-1, 1), VDKRuntimeException);
    MemoryWriter writer;
    EXPECT_THROW(table.writeTable(writer, 0, 0, 0, nullptr), VDKRuntimeException);
    DBTable<AllocatorRecord> allocators("allocator", 1, 1024);
    Progress progress;
    EXPECT_THROW(allocators.writeTable(writer, 0, 0, 0, &progress), VDKRuntimeException);
    takeLog();
}

TEST(DBTable, statisticsCountLiveRowsOnly) {
    FrameTable table("frame", 1, 1024);
    addRow(table, 1);
    addRow(table, -1);
    addRow(table, 0);
    long total = 100;
    const ZString line = table.getStatistics(&total);
    EXPECT_STREQ("               frame records=       1/    1280 allocated=   0.0 MB",
                 line.c_str());
    EXPECT_EQ(100 + 5 * 8 + 256 * 20, total);
}

TEST(DBTable, progressRisesRowByRow) {
    FrameTable table("frame", 1, 1024);
    for (int i = 0; i < 4; i++) {
        addRow(table, 1);
    }
    MemoryWriter writer;
    Progress progress;
    table.writeTable(writer, 0, 10, 20, &progress);
    // Three of four rows were written before the last one.
    EXPECT_EQ(17, progress.getLastPercent());
}
