#include "db/IndexPool.h"

#include <gtest/gtest.h>

TEST(IndexPool, releasedIndicesComeBackLastFirst) {
    IndexPool pool(1);
    EXPECT_EQ(1, pool.nextIndex());
    EXPECT_EQ(2, pool.nextIndex());
    EXPECT_EQ(3, pool.nextIndex());
    pool.releaseIndex(1);
    pool.releaseIndex(3);
    EXPECT_EQ(3, pool.peekNextIndex());
    EXPECT_EQ(3, pool.nextIndex());
    EXPECT_EQ(1, pool.nextIndex());
    EXPECT_EQ(4, pool.nextIndex());
}

TEST(IndexPool, peekChangesNothing) {
    IndexPool pool(0);
    EXPECT_EQ(0, pool.peekNextIndex());
    EXPECT_EQ(0, pool.peekNextIndex());
    EXPECT_EQ(0, pool.nextIndex());
}

TEST(IndexPool, clearForgetsReleasedIndicesAndStartsAgain) {
    IndexPool pool(1);
    pool.nextIndex();
    pool.nextIndex();
    pool.releaseIndex(1);
    pool.clearIndexPool();
    EXPECT_EQ(1, pool.nextIndex());
    EXPECT_EQ(2, pool.nextIndex());
}

TEST(IndexPool, doubleReleaseIsHandedOutTwice) {
    IndexPool pool(0);
    pool.releaseIndex(5);
    pool.releaseIndex(5);
    EXPECT_EQ(5, pool.nextIndex());
    EXPECT_EQ(5, pool.nextIndex());
}

TEST(IndexPool, keepAboveSkipsForeignIndices) {
    IndexPool pool(1);
    pool.keepAbove(9);
    EXPECT_EQ(10, pool.nextIndex());
    pool.keepAbove(3);
    EXPECT_EQ(11, pool.nextIndex());
}
