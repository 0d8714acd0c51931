#include "profiling/memory/InstanceCounting.h"

#include "ToyJvm.h"

#include <gtest/gtest.h>

namespace {
const InstanceCountsRecord* row(int index) {
    return ourDB->instanceCountsTable->getRecord(index, false);
}
} // namespace

TEST(InstanceCounting, nothingGatheredChangesNothing) {
    ToyJvm jvm;
    InstanceCounting counting(jvm.env(), ourDB, ~(1 << SLOT_InstanceCounts));
    counting.updateDatabase();
    EXPECT_EQ(-1, ourDB->instanceCountsTable->getMinIndex());
}

TEST(InstanceCounting, classThatLostItsInstancesGoesToZeroWithANewStamp) {
    ToyJvm jvm;
    InstanceCounting first(jvm.env(), ourDB, 0);
    first.addClass(1, "a.B");
    first.addClass(2, "a.C");
    first.beginCounting(2);
    first.addObject(1, 16);
    first.addObject(1, 24);
    first.addObject(2, 8);
    first.updateDatabase();
    EXPECT_EQ(2, row(1)->instanceCount);
    EXPECT_EQ(40, row(1)->shallowSize);
    EXPECT_STREQ("a.B", ourDB->stringPool->getText(row(1)->classNameStrID));
    ourDB->currentStamp = 2;
    InstanceCounting second(jvm.env(), ourDB, 0);
    second.beginCounting(2);
    second.addObject(2, 8);
    second.updateDatabase();
    EXPECT_EQ(0, row(1)->instanceCount);
    EXPECT_EQ(0, row(1)->shallowSize);
    EXPECT_EQ(2, row(1)->stamp);
    EXPECT_EQ(1, row(2)->stamp) << "unchanged";
}

TEST(InstanceCounting, unknownClassNumbersAndOddSizesAreHarmless) {
    ToyJvm jvm;
    InstanceCounting counting(jvm.env(), ourDB, 0);
    counting.addObject(1, 16);
    counting.addClass(1, "a.B");
    counting.beginCounting(1);
    for (long number : {0L, -1L, 2L, 1L << 40}) {
        counting.addObject(number, 16);
    }
    counting.addObject(1, -5);
    counting.updateDatabase();
    EXPECT_EQ(1, row(1)->instanceCount);
    EXPECT_EQ(0, row(1)->shallowSize);
}

TEST(InstanceCounting, rowsOfUnloadedClassesAreUsedAgain) {
    ToyJvm jvm;
    InstanceCounting first(jvm.env(), ourDB, 0);
    for (int i = 1; i <= 3; i++) {
        EXPECT_EQ(i, ourDB->instanceCountsTable->nextIndex());
        first.addClass(i, "a.B");
    }
    first.beginCounting(3);
    first.updateDatabase();
    ourDB->currentStamp = 7;
    RowSet loaded(4);
    loaded.mark(1);
    loaded.mark(3);
    InstanceCounting::deleteUnloadedClasses(loaded);
    EXPECT_EQ(-7, row(2)->stamp);
    EXPECT_EQ(0, row(2)->classNameStrID);
    EXPECT_EQ(1, row(3)->stamp);
    // Another count has given the number to a new class and met objects of it.
    EXPECT_EQ(2, ourDB->instanceCountsTable->nextIndex());
    InstanceCounting late(jvm.env(), ourDB, 0);
    late.beginCounting(3);
    late.addObject(2, 16);
    late.updateDatabase();
    EXPECT_EQ(-7, row(2)->stamp) << "nameless as yet";
    late.addClass(2, "a.New");
    late.updateDatabase();
    EXPECT_EQ(7, row(2)->stamp);
    EXPECT_EQ(1, row(2)->instanceCount);
}
