#include "db/SnapshotCommon.h"

#include "DBTestSupport.h"
#include "TempDir.h"
#include "core/ground/Version.h"
#include "db/SnapshotWriter.h"

#include <ctime>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

namespace {
std::string headerBytes(long flags) {
    TempDir dir;
    const int file = open(dir.file("header").c_str(), O_RDWR | O_CREAT, 0600);
    {
        SnapshotWriter writer(file);
        writeSnapshotHeader(0x11223344, "app", writer, flags, SNAPSHOT_FORMAT_VALUE);
    }
    close(file);
    return TempDir::read(dir.file("header"));
}
} // namespace

TEST(SnapshotCommon, headerByteByByte) {
    ourSnapshotCount = 0;
    ourContainsInvocations = false;
    const long before = time(nullptr);
    std::string header = headerBytes(0);
    const long after = time(nullptr);
    EXPECT_EQ(1, ourSnapshotCount);
    const std::string captured = header.substr(header.size() - 15, 8);
    long captureTime;
    memcpy(&captureTime, captured.data(), sizeof(captureTime));
    EXPECT_EQ(0, captureTime % 1000);
    EXPECT_GE(captureTime / 1000, before);
    EXPECT_LE(captureTime / 1000, after);
    header.replace(header.size() - 15, 8, bytesOf("EE EE EE EE EE EE EE EE"));
    EXPECT_EQ(hex(std::string("Vandrik Java Profiler snapshot, http://www.vandrik.com\n\x1A") +
                  "B" + char(sizeof "Created by " VDK_FULL_NAME - 1) + bytesOf("00 00 00") +
                  "Created by " VDK_FULL_NAME +
                  bytesOf("44 33 22 11 00 00 00 00" // start time
                          "00 00 00 00"             // snapshot number
                          "04 00 00 00"             // format value
                          "FF FF FF FF FF FF FF FF" // reserved
                          "00 02 00 00 00 00 00 00" // flags: object ids are indices
                          "EE EE EE EE EE EE EE EE" // capture time
                          "03 00 00 00") +
                  "app"),
              hex(header));
}

TEST(SnapshotCommon, oneEncodedStreamByteByByte) {
    DB db(-1, -1);
    db.stringPool->getDBIndex("a", true);
    db.currentStamp = 2;
    CPUProfilingRecord* cpu = db.cpuProfilingTable->getRecord(3, true);
    cpu->timeNs = 0x0102030405L;
    cpu->count = 1;
    cpu->stamp = 2;
    db.frameTable->getRecord(0, true)->stamp = -2;
    int stamps[MAX_TABLE_COUNT] = {};
    EXPECT_EQ(hex(bytesOf("00 00 00 00" // string
                          "01 00 00 00" // one row
                          "01 00 00 00" // row 1
                          "01 00 00 00" // stamp
                          "01 00 00 00 61"
                          "06 00 00 00" // cpuprofiling
                          "01 00 00 00"
                          "03 00 00 00" // row 3
                          "02 00 00 00" // stamp
                          "05 04 03 02 01 00 00 00"
                          "01 00 00 00 00 00 00 00"
                          "08 00 00 00" // frame
                          "01 00 00 00"
                          "00 00 00 00" // row 0
                          "FE FF FF FF" // deleted at stamp 2
                          "FF FF FF FF 00 00 00 00 FF FF FF FF FF FF FF FF"
                          "FF FF FF FF")), // end
              hex(socketStreamOf(db, 0x141, stamps)));
    // A reader that has seen stamp 1 gets no string, one that has seen stamp 2 nothing.
    stamps[SLOT_String] = 1;
    stamps[SLOT_CPUProfiling] = 2;
    stamps[SLOT_Frame] = 2;
    EXPECT_EQ(hex(bytesOf("00 00 00 00 00 00 00 00 06 00 00 00 00 00 00 00"
                          "08 00 00 00 00 00 00 00 FF FF FF FF")),
              hex(socketStreamOf(db, 0x141, stamps)));
}

TEST(SnapshotCommon, allTablesAreAllButAllocatorWithMarkers) {
    EXPECT_EQ(0x7efff, ALL_TABLES_MASK);
    DB db(-1, -1);
    db.createUserTableByDescription("T\n0\n");
    MemoryWriter descriptions;
    writeUserTableDescriptions(&db, descriptions);
    EXPECT_EQ(hex("5" + intBytes(32) + intBytes(4) + "T\n0\n"), hex(descriptions.take()));
    db.allocatorTable->setRecordModificationStamp(1, 1);
    std::string expected;
    for (int slot = 0; slot < CORE_TABLE_COUNT; slot++) {
        if (slot != SLOT_Allocator) {
            expected += "*" + intBytes(slot) + intBytes(0);
        }
    }
    expected += "*" + intBytes(32) + intBytes(0);
    EXPECT_EQ(hex(expected), hex(streamOf(db)));
}

TEST(SnapshotCommon, selectionOfNothingWritesNothing) {
    DB db(-1, -1);
    EXPECT_EQ("FF FF FF FF", hex(socketStreamOf(db, 0, nullptr)));
    // Bits and limits beyond the tables mean nothing.
    EXPECT_EQ("FF FF FF FF", hex(socketStreamOf(db, static_cast<int>(0xfff80000), nullptr)));
    EXPECT_EQ(0, (TableSet{0, 1000000}.count(db)));
    EXPECT_FALSE((TableSet{-1, 1000000}.contains(db, 128)));
    EXPECT_FALSE((TableSet{-1, 1000000}.contains(db, -1)));
    // The limit selects the user tables below it.
    for (int i = 0; i < 3; i++) {
        db.createUserTableByDescription("T\n0\n");
    }
    EXPECT_EQ(2, (TableSet{0, 34}.count(db)));
    EXPECT_EQ(0, (TableSet{0, 32}.count(db)));
    EXPECT_EQ(4, (TableSet{1, 128}.count(db)));
}

TEST(SnapshotCommon, progressIsSharedOutAmongTablesAndRows) {
    DB db(-1, -1);
    for (int slot : {SLOT_Thread, SLOT_Method, SLOT_Monitor, SLOT_Frame}) {
        db.tables[slot]->setRecordModificationStamp(1, 1);
    }
    const auto lastPercent = [&] {
        MemoryWriter writer;
        Progress progress;
        writeTables(&db, writer, {2 | 4 | 32 | 256, 0}, 10, 90, &progress, nullptr, false, nullptr);
        return progress.getLastPercent();
    };
    // The last table has the steps 70 to 90, and its first row reports their start.
    EXPECT_EQ(70, lastPercent());
    for (int row = 2; row <= 4; row++) {
        db.frameTable->setRecordModificationStamp(row, 1);
    }
    EXPECT_EQ(85, lastPercent());
}
