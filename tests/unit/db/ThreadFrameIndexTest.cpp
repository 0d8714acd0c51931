#include "db/ThreadFrameIndex.h"

#include "DBTestSupport.h"

#include <gtest/gtest.h>
#include <map>
#include <random>
#include <utility>

namespace {
constexpr int OLDEST = 1;

// A database with a stand-in for finished threads.
struct ThreadFrameIndexTest : testing::Test {
    ThreadFrameIndexTest() : db(-1, -1), index(*db.threadFrameIndex) {
        oldest.tfiThreadIndex = OLDEST;
        oldest.trn = 1;
        db.oldestFinishedThreads = &oldest;
    }
    CPUProfilingRecord* addTime(int thread, int frame, long timeNs, long count) {
        CPUProfilingRecord* record =
            db.cpuProfilingTable->getRecord(index.getTFI(thread, frame, true), true);
        record->timeNs += timeNs;
        record->count += count;
        record->stamp = db.currentStamp;
        return record;
    }
    DB db;
    ThreadFrameIndex& index;
    ThreadKeys oldest;
};
} // namespace

TEST_F(ThreadFrameIndexTest, changeThreadMovesTimesAndDeletesTheOldRows) {
    CPUProfilingRecord* cpu = addTime(2, 10, 700, 3);
    const int tfi = index.getTFI(2, 10, false);
    AllocInfoRecord* alloc = db.allocInfoTable->getRecord(tfi, true);
    alloc->objectCount = 4;
    alloc->objectBytes = 64;
    alloc->stamp = 1;
    db.currentStamp = 8;
    index.changeThread(4); // has no rows
    EXPECT_FALSE(oldest.needsWallTimeCorrection);
    index.changeThread(2);
    EXPECT_TRUE(oldest.needsWallTimeCorrection);
    EXPECT_EQ(0, cpu->timeNs);
    EXPECT_EQ(0, cpu->count);
    EXPECT_EQ(-8, cpu->stamp);
    EXPECT_EQ(-8, alloc->stamp);
    EXPECT_EQ(0, alloc->objectBytes);
    EXPECT_EQ(-8, db.threadFrameTable->getRecordModificationStamp(tfi));
    EXPECT_EQ(0, db.threadFrameTable->getRecord(tfi, true)->frame);
    EXPECT_EQ(-1, index.getTFI(2, 10, false));
    const int merged = index.getTFI(OLDEST, 10, false);
    ASSERT_GE(merged, 0);
    EXPECT_NE(tfi, merged);
    EXPECT_EQ(700, db.cpuProfilingTable->getRecord(merged, false)->timeNs);
    EXPECT_EQ(3, db.cpuProfilingTable->getRecord(merged, false)->count);
    EXPECT_EQ(8, db.cpuProfilingTable->getRecord(merged, false)->stamp);
    EXPECT_EQ(64, db.allocInfoTable->getRecord(merged, false)->objectBytes);
    // The released number starts at zero for the next pair.
    EXPECT_EQ(tfi, index.getTFI(7, 77, true));
    EXPECT_EQ(0, db.cpuProfilingTable->getRecord(tfi, true)->timeNs);
    // Another dead thread is added.
    addTime(3, 10, 50, 2);
    index.changeThread(3);
    EXPECT_EQ(750, db.cpuProfilingTable->getRecord(merged, false)->timeNs);
    EXPECT_EQ(5, db.cpuProfilingTable->getRecord(merged, false)->count);
}

TEST_F(ThreadFrameIndexTest, mergingMakesNoRowsOfWhatWasNeverRecorded) {
    addTime(2, 10, 700, 1);
    index.changeThread(2);
    EXPECT_EQ(0, db.allocInfoTable->eachSlot([](const AllocInfoRecord&) {}));
}

TEST_F(ThreadFrameIndexTest, pairsWithoutDataAreFreedAndTheLowestNumbersUsedFirst) {
    index.getTFI(2, 10, true);
    addTime(2, 11, 700, 1);
    const int unstored = index.getTFI(3, 10, true);
    db.cpuProfilingTable->getRecord(unstored, true);
    db.currentStamp = 8;
    index.freeUnused();
    EXPECT_EQ(-1, index.getTFI(2, 10, false));
    EXPECT_EQ(-1, index.getTFI(3, 10, false));
    EXPECT_EQ(1, index.getTFI(2, 11, false)) << "it has time";
    EXPECT_EQ(-8, db.threadFrameTable->getRecordModificationStamp(0));
    EXPECT_EQ(0, db.threadFrameTable->getRecord(unstored, false)->frame);
    EXPECT_EQ(0, index.getTFI(4, 20, true));
    EXPECT_EQ(2, index.getTFI(4, 21, true));
}

TEST_F(ThreadFrameIndexTest, rebuildFindsTheSamePairs) {
    std::mt19937 random(7);
    std::map<std::pair<int, int>, int> model;
    for (int i = 0; i < 5000; i++) {
        const int thread = 2 + static_cast<int>(random() % 30);
        const int frame = static_cast<int>(random() % 3000);
        model[{thread, frame}] = index.getTFI(thread, frame, true);
    }
    index.changeThread(5);
    index.fillIndexFromTable();
    for (const auto& entry : model) {
        const int expected = entry.first.first == 5 ? -1 : entry.second;
        ASSERT_EQ(expected, index.getTFI(entry.first.first, entry.first.second, false));
    }
    // New pairs come behind all rows; the deleted ones are not reused.
    EXPECT_EQ(db.threadFrameTable->getCapacity(), db.threadFrameTable->peekNextIndex());
}
