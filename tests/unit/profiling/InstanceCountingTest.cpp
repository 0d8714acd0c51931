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
