#include "profiling/FrequentSampling.h"

#include <gtest/gtest.h>

TEST(FrequentSampling, negativeThresholdNeverAsks) {
    frequentSamplingRowCreated(32, 1, -1);
    EXPECT_FALSE(isFrequentSampling());
}

TEST(FrequentSampling, overdueEventAsksUntilItIsClosed) {
    frequentSamplingRowCreated(32, 1, 0);
    EXPECT_TRUE(isFrequentSampling());
    frequentSamplingRowClosed(32, 2);
    frequentSamplingRowClosed(33, 1);
    EXPECT_TRUE(isFrequentSampling()) << "other rows were closed";
    frequentSamplingRowClosed(32, 1);
    EXPECT_FALSE(isFrequentSampling());
}

TEST(FrequentSampling, theEarliestOfSeveralCounts) {
    frequentSamplingRowCreated(32, 1, 3600000);
    EXPECT_FALSE(isFrequentSampling());
    frequentSamplingRowCreated(32, 2, 0);
    frequentSamplingRowCreated(32, 3, 3600000);
    EXPECT_TRUE(isFrequentSampling());
    frequentSamplingRowClosed(32, 2);
    EXPECT_FALSE(isFrequentSampling()) << "the two left are not due for an hour";
    frequentSamplingRowClosed(32, 1);
    frequentSamplingRowClosed(32, 3);
}
