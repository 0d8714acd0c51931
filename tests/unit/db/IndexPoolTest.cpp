#include "db/IndexPool.h"

#include <gtest/gtest.h>

TEST(IndexPool, releasedIndicesComeBackLastFirstUntilItIsCleared) {
    IndexPool pool(1);
    const auto expectNext = [&](std::initializer_list<int> indices) {
        for (int index : indices) {
            EXPECT_EQ(index, pool.peekNextIndex());
            EXPECT_EQ(index, pool.nextIndex());
        }
    };
    expectNext({1, 2, 3});
    pool.releaseIndex(1);
    pool.releaseIndex(3);
    expectNext({3, 1, 4});
    pool.keepAbove(9); // foreign indices are skipped
    expectNext({10});
    pool.keepAbove(3);
    expectNext({11});
    pool.releaseIndex(5);
    pool.clearIndexPool();
    expectNext({1, 2});
}
