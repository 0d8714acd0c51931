#include "snapshot/ObjectTable.h"

#include <gtest/gtest.h>

TEST(ObjectTable, keepsWhatCameAtEverySizeThatItGrowsThrough) {
    constexpr int COUNT = 6000000;
    ObjectTable table;
    EXPECT_FALSE(table.contains(0));
    EXPECT_FALSE(table.contains(1));
    for (int index = 1; index < COUNT; index += 2) {
        table.add(index, static_cast<uintptr_t>(index) * 3);
        ASSERT_FALSE(table.contains(index + 1));
    }
    for (int index = 1; index < COUNT; index += 2) {
        ASSERT_TRUE(table.contains(index));
        ASSERT_EQ(static_cast<uintptr_t>(index) * 3, table.get(index));
    }
    EXPECT_FALSE(table.contains(2)) << "an index that was passed over";
    EXPECT_FALSE(table.contains(-1));
}
