#include "db/DB.h"

#include "DBTestSupport.h"

#include <gtest/gtest.h>

namespace {
int standInCalls = 0;
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
    // By its number only a change is stamped.
    db.currentStamp = 11;
    db.setPropertyByRecordIndex(row, 3);
    EXPECT_EQ(9, db.propertyTable->getRecordModificationStamp(row));
    db.setPropertyByRecordIndex(row, 8);
    EXPECT_EQ(11, db.propertyTable->getRecordModificationStamp(row));
    EXPECT_EQ(8, db.propertyTable->getRecord(row, false)->value);
}

TEST(DB, fieldNumbersReachTheirFields) {
    DB db(-1, -1);
    // Every first field stands right behind the stamp; the table was made visible by nothing.
    db.setIntField(1, 3, 1001);
    EXPECT_EQ(1001, db.getIntField(1, 3));
    EXPECT_EQ(0, db.threadTable->getRecordModificationStamp(3));
    EXPECT_EQ(1001, db.threadTable->getRecord(3, true)->nameStrID);
    db.setIntField(32, 5, 66);
    EXPECT_EQ(66, db.frameTable->getRecord(5, true)->nextSibling);
    db.setLongField(24, 7, -5);
    EXPECT_EQ(-5, db.cpuProfilingTable->getRecord(7, true)->timeNs);
    db.setLongField(53, 3, 1L << 50);
    EXPECT_EQ(1L << 50, db.exceptionTable->getRecord(3, true)->count);
    db.setIntField(55, 0, 6);
    EXPECT_EQ(6, db.telemetryExtTable->getRecord(0, true)->value);
    // A field at the end of a row is not read beyond it.
    EXPECT_THROW(db.getLongField(FIELD_TelemetryExt_value, 0), VDKRuntimeException);
    EXPECT_THROW(db.setLongField(FIELD_TelemetryExt_value, 0, 1), VDKRuntimeException);
    EXPECT_THROW(db.setLongField(FIELD_String_text, 1, 1), VDKRuntimeException);
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
    // The pool forgets with the table of strings.
    db.stringPool->getDBIndex("x", true);
    db.tables[SLOT_String]->clearTable();
    EXPECT_EQ(0, db.stringPool->getDBIndex("x", false));
    EXPECT_EQ(1, db.stringPool->getDBIndex("y", true));
}

TEST(DB, snapshotRowsAreFoundByPathAndStatisticsEndWithTheSums) {
    DB db(3600, 20000);
    db.addSnapshotRow("/tmp/a", 512);
    EXPECT_TRUE(db.hasSnapshotRow("/tmp/a"));
    EXPECT_FALSE(db.hasSnapshotRow("/tmp/"));
    EXPECT_EQ(512, db.snapshotTable->getRecord(0, false)->value);
    const std::string report = db.getStatistics().c_str();
    for (const char* part : {"              string records=       1/    1280 allocated=",
                             "\n            tele_ext records=       0/    1280",
                             "\n\ntelemetryLimit=3600\n\nprobeTableLengthLimit=20000\n\nString "
                             "bodies:    0.0 MB\nTFI:    0.0 MB\n\nTotal size:    0."}) {
        EXPECT_NE(std::string::npos, report.find(part)) << report;
    }
}
