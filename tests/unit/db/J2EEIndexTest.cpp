#include "db/J2EEIndex.h"

#include "DBTestSupport.h"

#include <gtest/gtest.h>

namespace {
struct J2EEIndexTest : testing::Test {
    J2EEIndexTest() : db(-1, -1), index(*db.j2eeIndex) {
        oldest.tfiThreadIndex = 1;
        oldest.trn = 1;
        db.oldestFinishedThreads = &oldest;
    }
    J2EERecord* row(int name, int type, int frame, int trn) {
        return db.j2eeTable->getRecord(index.getIndex(name, type, frame, trn), true);
    }
    DB db;
    J2EEIndex& index;
    ThreadKeys oldest;
};
} // namespace

TEST_F(J2EEIndexTest, quadrupleKeepsItsRow) {
    const int first = index.getIndex(1, 2, 3, 4);
    EXPECT_EQ(first, index.getIndex(1, 2, 3, 4));
    EXPECT_NE(first, index.getIndex(1, 2, 3, 5));
    EXPECT_NE(first, index.getIndex(2, 2, 3, 4));
    const J2EERecord* record = db.j2eeTable->getRecord(first, false);
    EXPECT_EQ(1, record->nameStrID);
    EXPECT_EQ(2, record->typeID);
    EXPECT_EQ(3, record->frame);
    EXPECT_EQ(4, record->trn);
    EXPECT_EQ(1, record->stamp);
    // Name + frame x 29 is the same for both: they share a bucket.
    ASSERT_EQ(J2EEIndex::keyOf(29, 2, 0, 4), J2EEIndex::keyOf(0, 2, 1, 4));
    const int colliding = index.getIndex(29, 2, 0, 4);
    EXPECT_NE(colliding, index.getIndex(0, 2, 1, 4));
    EXPECT_EQ(colliding, index.getIndex(29, 2, 0, 4));
}

TEST_F(J2EEIndexTest, clearThreadDeletesItsRowsOnly) {
    J2EERecord* cleared = row(1, 2, 3, 4);
    cleared->timeNs = 9;
    cleared->count = 2;
    row(1, 2, 3, 5)->timeNs = 8;
    const int index1 = index.getIndex(1, 2, 3, 4);
    db.currentStamp = 6;
    index.clearThread(4);
    EXPECT_EQ(-6, cleared->stamp);
    EXPECT_EQ(0, cleared->timeNs);
    EXPECT_EQ(0, cleared->count);
    EXPECT_EQ(3, cleared->frame);
    EXPECT_EQ(8, row(1, 2, 3, 5)->timeNs);
    // The row is free for the next event.
    EXPECT_EQ(index1, index.getIndex(7, 7, 7, 7));
}

TEST_F(J2EEIndexTest, mergeAddsToTheOldestThreadsAndLosesNothing) {
    ZSet<int> gone(100);
    for (int trn = 2; trn < 300; trn++) {
        gone.add(trn);
        for (int name = 1; name < 20; name++) {
            row(name, 1, name, trn)->count = 1;
            row(name, 1, name, trn)->timeNs = trn;
        }
    }
    row(1, 1, 1, 300)->timeNs = 40;
    const int kept = index.getIndex(1, 1, 1, 300);
    index.mergeJ2EEIndex(&gone);
    for (int name = 1; name < 20; name++) {
        EXPECT_EQ(298, row(name, 1, name, 1)->count);
        EXPECT_EQ(298 * 301 / 2, row(name, 1, name, 1)->timeNs);
    }
    EXPECT_EQ(kept, index.getIndex(1, 1, 1, 300));
    EXPECT_EQ(40, row(1, 1, 1, 300)->timeNs);
    EXPECT_THROW(index.mergeJ2EEIndex(nullptr), VDKRuntimeException);
}

TEST_F(J2EEIndexTest, rebuildFindsTheSameRows) {
    std::vector<int> rows;
    for (int i = 0; i < 2000; i++) {
        rows.push_back(index.getIndex(i % 37, 1 + i % 5, i, 2 + i % 11));
    }
    index.fillIndexFromTable();
    EXPECT_EQ(db.j2eeTable->getCapacity(), db.j2eeTable->peekNextIndex());
    for (int i = 0; i < 2000; i++) {
        ASSERT_EQ(rows[static_cast<size_t>(i)], index.getIndex(i % 37, 1 + i % 5, i, 2 + i % 11));
    }
}
