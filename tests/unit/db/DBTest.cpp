#include "db/DB.h"

#include "DBTestSupport.h"

#include <gtest/gtest.h>

namespace {
int standInCalls = 0;
}

TEST(DB, slotsHoldTheCatalogue) {
    DB db(3600, 20000);
    EXPECT_EQ(db.stringTable, db.tables[0]);
    EXPECT_EQ(db.methodTable, db.tables[2]);
    EXPECT_EQ(db.threadFrameTable, db.tables[3]);
    EXPECT_EQ(db.telemetryExtTable, db.tables[18]);
    for (int slot = 19; slot < MAX_TABLE_COUNT; slot++) {
        EXPECT_EQ(nullptr, db.tables[slot]);
    }
    EXPECT_EQ(1, db.currentStamp);
    EXPECT_EQ(1, db.threadTable->peekNextIndex());
    EXPECT_EQ(0, db.threadFrameTable->peekNextIndex());
    EXPECT_EQ(1, db.frameTable->peekNextIndex());
    EXPECT_EQ(0, db.telemetryTable->peekNextIndex());
    EXPECT_EQ(1280, db.propertyTable->getCapacity());
    EXPECT_EQ(40961 * 256, db.methodTable->getCapacity());
}

TEST(DB, everyTableStartsAtItsFirstIndex) {
    DB db(-1, -1);
    const int firstIndices[CORE_TABLE_COUNT] = {1, 1, 1, 0, 0, 1, 0, 1, 1, 0,
                                                0, 0, 1, 1, 0, 0, 0, 1, 0};
    for (int slot = 0; slot < CORE_TABLE_COUNT; slot++) {
        EXPECT_EQ(firstIndices[slot], db.tables[slot]->peekNextIndex()) << slot;
    }
}

TEST(DB, initializationMakesTheInvisibleTelemetryProperties) {
    DB* previous = ourDB;
    DB::createAndInitializeDB(5, 6, [] { standInCalls++; });
    EXPECT_EQ(1, standInCalls);
    EXPECT_EQ(5, ourDB->telemetryLimit);
    EXPECT_EQ(6, ourDB->probeTableLengthLimit);
    const int name = ourDB->stringPool->getDBIndex("telec.deadlock.found", false);
    EXPECT_GT(name, 0);
    EXPECT_EQ(5, ourDB->findPropertyRecordIndex(name));
    EXPECT_EQ(0, ourDB->propertyTable->getRecordModificationStamp(5));
    EXPECT_EQ(6, ourDB->propertyTable->peekNextIndex());
    delete ourDB;
    ourDB = previous;
}

TEST(DB, setPropertyOverwritesTheRowOfTheName) {
    DB db(-1, -1);
    const int name = db.setProperty("vdk.x", 3);
    EXPECT_EQ(name, db.stringPool->getDBIndex("vdk.x", false));
    const int row = db.findPropertyRecordIndex(name);
    db.currentStamp = 9;
    EXPECT_EQ(name, db.setProperty("vdk.x", 3));
    EXPECT_EQ(row, db.findPropertyRecordIndex(name));
    EXPECT_EQ(9, db.propertyTable->getRecordModificationStamp(row));
    EXPECT_EQ(-1, db.findPropertyRecordIndex(12345));
}

TEST(DB, setPropertyByIndexStampsOnlyAChange) {
    DB db(-1, -1);
    db.setPropertyByRecordIndex(4, 0);
    EXPECT_EQ(0, db.propertyTable->getRecordModificationStamp(4));
    db.setPropertyByRecordIndex(4, 8);
    EXPECT_EQ(1, db.propertyTable->getRecordModificationStamp(4));
    EXPECT_EQ(8, db.propertyTable->getRecord(4, false)->value);
}

TEST(DB, fieldNumbersReachTheirFields) {
    DB db(-1, -1);
    struct {
        int number;
        int slot;
    } rows[] = {{1, 1},   {6, 2},   {10, 3},  {12, 4},  {18, 5},  {26, 7},  {29, 8},
                {33, 10}, {37, 12}, {40, 13}, {43, 14}, {45, 16}, {49, 17}, {54, 18}};
    for (const auto& row : rows) {
        db.setIntField(row.number, 3, 1000 + row.number);
        EXPECT_EQ(1000 + row.number, db.getIntField(row.number, 3));
        // Every first field stands right behind the stamp; the table was made visible by nothing.
        EXPECT_EQ(0, db.tables[row.slot]->getRecordModificationStamp(3));
    }
    EXPECT_EQ(1001, db.threadTable->getRecord(3, true)->nameStrID);
    EXPECT_EQ(1054, db.telemetryExtTable->getRecord(3, true)->nameStrID);
    EXPECT_EQ(1049, db.exceptionTable->getRecord(3, true)->trn);
    db.setLongField(53, 3, 1L << 50);
    EXPECT_EQ(1L << 50, db.exceptionTable->getRecord(3, true)->count);
    db.setLongField(24, 7, -5);
    EXPECT_EQ(-5, db.cpuProfilingTable->getRecord(7, true)->timeNs);
    db.setIntField(55, 0, 6);
    EXPECT_EQ(6, db.telemetryExtTable->getRecord(0, true)->value);
    db.setIntField(32, 5, 66);
    EXPECT_EQ(66, db.frameTable->getRecord(5, true)->nextSibling);
}

TEST(DB, badFieldNumbersAndWidthsAreInternalErrors) {
    DB db(-1, -1);
    EXPECT_EQ(0, db.getIntField(55, 0));
    EXPECT_THROW(db.getIntField(56, 0), VDKRuntimeException);
    EXPECT_THROW(db.getIntField(-1, 0), VDKRuntimeException);
    EXPECT_THROW(db.setLongField(56, 0, 1), VDKRuntimeException);
    EXPECT_THROW(db.getIntField(1, -1), VDKRuntimeException);
    EXPECT_THROW(db.getLongField(FIELD_TelemetryExt_value, 0), VDKRuntimeException);
    EXPECT_THROW(db.setLongField(FIELD_TelemetryExt_value, 0, 1), VDKRuntimeException);
    EXPECT_THROW(db.setLongField(FIELD_String_text, 1, 1), VDKRuntimeException);
    takeLog();
}

TEST(DB, userTablesTakeSlots32To127) {
    DB db(-1, -1);
    for (int i = 0; i < 96; i++) {
        ASSERT_EQ(32 + i, db.createUserTableByDescription("T\n1\nx\n0\n"));
    }
    EXPECT_EQ(-1, db.createUserTableByDescription("T\n1\nx\n0\n"));
    EXPECT_NE(nullptr, db.getUserTable(127));
    EXPECT_EQ(nullptr, db.getUserTable(128));
    EXPECT_EQ(nullptr, db.getUserTable(31));
    EXPECT_EQ(nullptr, db.getUserTable(0));
}

TEST(DB, clearingATableTellsReadersTheStamp) {
    DB db(-1, -1);
    db.currentStamp = 4;
    db.j2eeIndex->getIndex(1, 2, 3, 4);
    db.clearTableAndTellReaders(SLOT_J2EE);
    EXPECT_EQ(4, db.tableGenerationTable->getRecordModificationStamp(SLOT_J2EE));
    EXPECT_EQ(-1, db.j2eeTable->getMinIndex());
    // The index forgot the row as well.
    EXPECT_EQ(0, db.j2eeIndex->getIndex(1, 2, 3, 4));
    db.currentStamp = 6;
    db.clearTableAndTellReaders(SLOT_J2EE);
    EXPECT_EQ(6, db.tableGenerationTable->getRecordModificationStamp(SLOT_J2EE));
}

TEST(DB, clearedStringTableAndPoolAgree) {
    DB db(-1, -1);
    db.stringPool->getDBIndex("x", true);
    db.tables[SLOT_String]->clearTable();
    EXPECT_EQ(0, db.stringPool->getDBIndex("x", false));
    EXPECT_EQ(1, db.stringPool->getDBIndex("y", true));
}

TEST(DB, snapshotRowsAreFoundByPath) {
    DB db(-1, -1);
    EXPECT_FALSE(db.hasSnapshotRow("/tmp/a"));
    db.addSnapshotRow("/tmp/a", 512);
    EXPECT_TRUE(db.hasSnapshotRow("/tmp/a"));
    EXPECT_FALSE(db.hasSnapshotRow("/tmp/"));
    EXPECT_EQ(512, db.snapshotTable->getRecord(0, false)->value);
}

TEST(DB, statisticsNameEveryTableAndTheSums) {
    DB db(3600, 20000);
    db.stringPool->getDBIndex("hello", true);
    const std::string report = db.getStatistics().c_str();
    EXPECT_NE(std::string::npos,
              report.find("              string records=       1/    1280 allocated="));
    EXPECT_NE(std::string::npos, report.find("\n            tele_ext records=       0/    1280"));
    EXPECT_NE(std::string::npos, report.find("\n\ntelemetryLimit=3600\n"
                                             "\nprobeTableLengthLimit=20000\n"
                                             "\nString bodies:    0.0 MB\n"
                                             "TFI:    0.0 MB\n"
                                             "\nTotal size:    0."));
}
