#include "profiling/TelemetryHelper.h"

#include "ToyJvm.h"

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

TEST_F(TelemetryHelperTest, agentFillsItsOwnFields) {
    store();
    EXPECT_EQ(11, row(0)->values[TELE_PROCESSOR_COUNT]);
    EXPECT_EQ(-1, row(0)->values[TELE_THREAD_STATE_COUNT]) << "stacks are off";
    EXPECT_EQ(0, row(0)->values[TELE_THREAD_STATE_START_INDEX]);
    EXPECT_EQ(0, row(0)->values[TELE_EXT_COUNT]);
    EXPECT_GE(row(0)->values[TELE_UPTIME_DS], 0);
    EXPECT_LT(row(0)->values[TELE_UPTIME_DS], 36000);
}

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
    names[0] = 76;
    store();
    EXPECT_EQ(128, row(1)->values[TELE_EXT_COUNT]);
    EXPECT_EQ(0, row(1)->values[TELE_EXT_START_INDEX]);
    EXPECT_EQ(0, ourDB->telemetryExtTable->getRecord(127, false)->nameStrID);
    EXPECT_EQ(127, ourDB->telemetryExtTable->getRecord(127, false)->value);
    store();
    EXPECT_EQ(128, row(2)->values[TELE_EXT_START_INDEX]);
}

TEST_F(TelemetryHelperTest, wrongNumberOfValuesIsRefused) {
    tele.pop();
    EXPECT_THROW(store(), VDKRuntimeException);
    tele.push(0);
    names.pop();
    EXPECT_THROW(store(), VDKRuntimeException);
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

TEST_F(TelemetryHelperTest, noLimitEvictsNothing) {
    ourDB->telemetryLimit = -1;
    store();
    evictTelemetry(1000000);
    EXPECT_NE(nullptr, row(0));
}

TEST_F(TelemetryHelperTest, snapshotIsFoundByItsPath) {
    addSnapshotInfo("/a/b.snapshot", 4096);
    EXPECT_TRUE(findSnapshot("/a/b.snapshot"));
    EXPECT_FALSE(findSnapshot("/a/b"));
    EXPECT_EQ(4096, ourDB->snapshotTable->getRecord(0, false)->value);
}
