#include "profiling/TelemetryHelper.h"

#include "ToyJvm.h"
#include "profiling/TelemetryRows.h"

#include <gtest/gtest.h>

namespace {

class TelemetryHelperTest : public testing::Test {
protected:
    TelemetryHelperTest() {
        for (int i = 0; i < TELE_FIELD_COUNT; i++) {
            tele.push(i);
        }
        for (int i = 0; i < TELEC_FIELD_COUNT; i++) {
            telec.push(0);
        }
        for (int i = 0; i < 128; i++) {
            names.push(0);
            values.push(i);
        }
    }
    void store() { storeTelemetryRecord(jvm.env(), telec, tele, names, values); }
    const TelemetryRecord* row(int index) { return ourDB->telemetryTable->getRecord(index, false); }

    ToyJvm jvm;
    ZVector<int> telec;
    ZVector<int> tele;
    ZVector<int> names;
    ZVector<int> values;
};

} // namespace

TEST_F(TelemetryHelperTest, propertyShowsOnceItsValueDiffersFromZero) {
    store();
    EXPECT_EQ(0, ourDB->propertyTable->getRecordModificationStamp(2));
    telec[2] = 7;
    ourDB->currentStamp = 3;
    store();
    ourDB->currentStamp = 4;
    store();
    EXPECT_EQ(3, ourDB->propertyTable->getRecordModificationStamp(2));
    EXPECT_EQ(7, ourDB->propertyTable->getRecord(2, false)->value);
}

TEST_F(TelemetryHelperTest, propertyKeepsItsNameThroughCollections) {
    ourDB->stringPool->collectGarbageStrings();
    ourDB->stringPool->getDBIndex("req-93", true);
    const int own = ourDB->setProperty("own", 77);
    EXPECT_GE(ourDB->findPropertyRecordIndex(own), TELEC_FIELD_COUNT) << "a row of its own";
    telec[5] = 1;
    store();
    const int name = ourDB->propertyTable->getRecord(5, false)->nameStrID;
    EXPECT_STREQ("telec.deadlock.found", ourDB->stringPool->getText(name));
}

TEST_F(TelemetryHelperTest, firstExtraNameDecidesForAll) {
    names[5] = 77;
    store();
    EXPECT_EQ(0, row(0)->values[TELE_EXT_COUNT]);
    EXPECT_EQ(11, row(0)->values[TELE_PROCESSOR_COUNT]);
    EXPECT_EQ(-1, row(0)->values[TELE_THREAD_STATE_COUNT]) << "stacks are off";
    names[0] = 76;
    store();
    EXPECT_EQ(128, row(1)->values[TELE_EXT_COUNT]);
    EXPECT_EQ(0, row(1)->values[TELE_EXT_START_INDEX]);
    EXPECT_EQ(0, ourDB->telemetryExtTable->getRecord(127, false)->nameStrID);
    EXPECT_EQ(127, ourDB->telemetryExtTable->getRecord(127, false)->value);
    store();
    EXPECT_EQ(128, row(2)->values[TELE_EXT_START_INDEX]);
}

TEST_F(TelemetryHelperTest, wholeChunksBeyondTheLimitAreEvicted) {
    names[0] = 1;
    while (ourDB->telemetryTable->peekNextIndex() < 3860) {
        store();
    }
    EXPECT_NE(nullptr, row(0));
    EXPECT_NE(nullptr, ourDB->telemetryExtTable->getRecord(0, false));
    store();
    EXPECT_EQ(nullptr, row(0));
    EXPECT_EQ(nullptr, row(255));
    EXPECT_NE(nullptr, row(256));
    const int firstKept = row(256)->values[TELE_EXT_START_INDEX];
    EXPECT_EQ(256 * 128, firstKept);
    EXPECT_EQ(nullptr, ourDB->telemetryExtTable->getRecord(firstKept - 1, false));
    EXPECT_NE(nullptr, ourDB->telemetryExtTable->getRecord(firstKept, false));
}

// Long sessions come back to low row numbers, and no run is ever written over by another.
TEST_F(TelemetryHelperTest, rowNumbersNeverRunOut) {
    names[0] = 1;
    ourDB->telemetryLimit = 600;
    // As after months: far up, with rows that are still kept.
    ourDB->telemetryExtTable->getIndexPool().continueAt(ROWS_BEFORE_REUSE - 300);
    ourDB->threadStateTable->getIndexPool().continueAt(INT_MAX - 700);
    int ownCount = 0;
    for (int record = 0; record < 4000; record++) {
        values[7] = record;
        store();
        // Thread states of this record: as many as a machine of changing load has.
        const int rows = 1 + record * 37 % 500;
        beginThreadStates(rows);
        TelemetryRecord* tele = ourDB->telemetryTable->getRecord(record, true);
        tele->values[TELE_THREAD_STATE_START_INDEX] = ourDB->threadStateTable->peekNextIndex();
        tele->values[TELE_THREAD_STATE_COUNT] = rows;
        for (int i = 0; i < rows; i++) {
            const int index = ourDB->threadStateTable->nextIndex();
            ThreadStateRecord* state = ourDB->threadStateTable->getRecord(index, true);
            state->trn = record;
            state->stamp = 1;
        }
    }
    EXPECT_LT(ourDB->threadStateTable->peekNextIndex(), ROWS_BEFORE_REUSE);
    EXPECT_LT(ourDB->telemetryExtTable->peekNextIndex(), ROWS_BEFORE_REUSE);
    ourDB->telemetryTable->eachRecord([&](int record, const TelemetryRecord& tele) {
        for (int i = 0; i < tele.values[TELE_THREAD_STATE_COUNT]; i++) {
            const int index = tele.values[TELE_THREAD_STATE_START_INDEX] + i;
            const ThreadStateRecord* state = ourDB->threadStateTable->getRecord(index, false);
            ASSERT_NE(nullptr, state) << record;
            ASSERT_EQ(record, state->trn);
        }
        const int extra = tele.values[TELE_EXT_START_INDEX] + 7;
        ASSERT_NE(nullptr, ourDB->telemetryExtTable->getRecord(extra, false)) << record;
        ASSERT_EQ(record, ourDB->telemetryExtTable->getRecord(extra, false)->value);
        ownCount++;
    });
    EXPECT_LE(ownCount, 600 + 256 + 20);
    // What is held is what the kept records name, and a begun chunk here and there.
    EXPECT_LT(ourDB->threadStateTable->getRecords().getUsedChunks(), ownCount);
}

TEST_F(TelemetryHelperTest, oldestThreadStatesGoWhenThereAreTooMany) {
    for (int record = 0; record < 100; record++) {
        store();
        TelemetryRecord* tele = ourDB->telemetryTable->getRecord(record, true);
        tele->values[TELE_THREAD_STATE_START_INDEX] = ourDB->threadStateTable->peekNextIndex();
        tele->values[TELE_THREAD_STATE_COUNT] = 100;
        for (int i = 0; i < 100; i++) {
            ourDB->threadStateTable->setRecordModificationStamp(
                ourDB->threadStateTable->nextIndex(), 1);
        }
    }
    ourDB->currentStamp = 5;
    limitThreadStates(5120);
    EXPECT_LE(ourDB->threadStateTable->getRecords().getUsedChunks(), 20);
    EXPECT_EQ(-1, row(0)->values[TELE_THREAD_STATE_COUNT]);
    EXPECT_EQ(5, row(0)->stamp);
    EXPECT_EQ(11, row(0)->values[TELE_PROCESSOR_COUNT]);
    int first = 0;
    while (row(first)->values[TELE_THREAD_STATE_COUNT] == -1) {
        first++;
    }
    EXPECT_LT(first, 60);
    const int start = row(first)->values[TELE_THREAD_STATE_START_INDEX];
    EXPECT_NE(nullptr, ourDB->threadStateTable->getRecord(start, false));
    EXPECT_EQ(nullptr, ourDB->threadStateTable->getRecord(start - 256, false));
    limitThreadStates(1);
    EXPECT_EQ(100, row(99)->values[TELE_THREAD_STATE_COUNT]) << "the newest row stays whole";
}
