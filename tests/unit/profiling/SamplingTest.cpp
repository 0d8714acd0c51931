#include "profiling/cpu/Sampling.h"

#include "ToyJvm.h"
#include "profiling/cpu/Tracing.h"
#include "profiling/cpu/WallSampling.h"
#include "profiling/threads/AllStacks.h"
#include "profiling/threads/MethodLookup.h"
#include "profiling/threads/ZFrameStorage.h"

#include <gtest/gtest.h>

namespace {

// A thread with a stack of three methods: main, work, leaf.
class SamplingTest : public testing::Test {
protected:
    SamplingTest() : info("worker", nullptr, 0, nullptr) {
        for (int i = 0; i < 3; i++) {
            const char* const names[] = {"main", "work", "leaf"};
            methods[i] = ZMethod::getByName("A", names[i], "()");
            frames[i] = ourFrameStorage.getChild(i == 0 ? 0 : frames[i - 1], methods[i]);
        }
    }
    void setFlag(int method, int flag) {
        ourDB->methodTable->getRecord(methods[method], true)->flags |= flag;
    }
    long timeOf(int frame) {
        const CPUProfilingRecord* row = info.getCPUProfilingRecord(frames[frame], false);
        return row == nullptr ? -1 : row->timeNs;
    }
    void sample(long cpuTimeNs, long wallDeltaNs = 20) {
        chargeThreadSample(&info, frames[2], wallDeltaNs, cpuTimeNs);
    }

    ToyJvm jvm;
    ThreadInfo info;
    int methods[3];
    int frames[3];
};

} // namespace

TEST_F(SamplingTest, everyFrameOfTheStackIsChargedFromTheSecondSampleOn) {
    sample(5000);
    EXPECT_EQ(0, timeOf(2));
    EXPECT_EQ(5000, info.sampled.lastCpuTimeNs);
    sample(5700);
    EXPECT_EQ(700, timeOf(0));
    EXPECT_EQ(700, timeOf(1));
    EXPECT_EQ(700, timeOf(2));
    EXPECT_EQ(0, info.getCPUProfilingRecord(frames[2], false)->count);
    EXPECT_FALSE(info.needsWallTimeCorrection);
}

TEST_F(SamplingTest, deltasOfAHundredSecondsAndMoreAreDropped) {
    const struct {
        long delta;
        long charged;
    } rows[] = {{1, 1}, {0, 0}, {-1, 0}, {99999999999, 99999999999}, {100000000000, 0}};
    for (const auto& row : rows) {
        info.clearCPUAndJ2EEInfo();
        info.getCPUProfilingRecord(frames[2], true)->timeNs = 0;
        sample(1000);
        sample(1000 + row.delta);
        EXPECT_EQ(row.charged, timeOf(2)) << row.delta;
    }
}

TEST_F(SamplingTest, waitingMethodTakesNoTimeNowNorLater) {
    setFlag(2, METHOD_WAIT);
    sample(1000);
    sample(1500);
    EXPECT_EQ(-1, timeOf(2)) << "not even a row";
    chargeThreadSample(&info, frames[1], 20, 1600);
    EXPECT_EQ(100, timeOf(1));
}

TEST_F(SamplingTest, wallTimeHoldsFromItsFrameUpToTheRoot) {
    setFlag(1, METHOD_WALL_TIME);
    sample(1000);
    EXPECT_EQ(20, timeOf(1)) << "wall time needs no earlier reading";
    sample(1003);
    EXPECT_EQ(3, timeOf(2));
    EXPECT_EQ(40, timeOf(1));
    EXPECT_EQ(40, timeOf(0));
    EXPECT_TRUE(info.needsWallTimeCorrection);
}

TEST_F(SamplingTest, cpuTimeBeyondTheElapsedTimeCountsAsElapsed) {
    setFlag(2, METHOD_WALL_TIME);
    sample(1000);
    sample(1100);
    EXPECT_EQ(120, timeOf(2));
}

TEST_F(SamplingTest, idleThreadInWallTimeGoesOnBeingCharged) {
    sample(1000);
    sample(1000);
    setFlag(0, METHOD_WALL_TIME);
    info.sampled
        .forgetLastSample(); // as every start of profiling does, after it reloaded the filters
    sample(1000);
    sample(1000);
    EXPECT_EQ(40, timeOf(0));
}

TEST_F(SamplingTest, idleThreadIsChargedAgainOnceItRunsAndItsRowStampedThen) {
    sample(1000);
    sample(1010);
    ourDB->currentStamp = 4;
    sample(1010);
    sample(1010);
    EXPECT_EQ(10, timeOf(2));
    EXPECT_EQ(1, info.getCPUProfilingRecord(frames[2], false)->stamp);
    sample(1200);
    EXPECT_EQ(200, timeOf(2));
    EXPECT_EQ(4, info.getCPUProfilingRecord(frames[2], false)->stamp);
}

TEST_F(SamplingTest, aStartOfElapsedTimesThatFailedHasNoPartInTheNextStart) {
    const ZString none;
    SamplerChoice elapsed;
    ASSERT_TRUE(elapsed.setByName("wall"));
    const long foreignBit = 1L << 40;
    EXPECT_THROW(startCPUProfiling(nullptr, CPU_SAMPLING | foreignBit, &none, &none, elapsed),
                 VDKRuntimeException);
    EXPECT_STREQ("", startCPUProfiling(nullptr, CPU_SAMPLING, &none, &none).c_str());
    EXPECT_FALSE(WallSampling::isOn());
    stopCPUProfilingImpl(nullptr, false);
    EXPECT_STREQ("", startCPUProfiling(nullptr, CPU_SAMPLING, &none, &none, elapsed).c_str());
    EXPECT_TRUE(WallSampling::isOn());
    stopCPUProfilingImpl(nullptr, false);
}

TEST_F(SamplingTest, telemetryThatOutlivesAFailedAttachFindsNoStacks) {
    jvmtiEnv* environment = ourJVMTI;
    ourJVMTI = nullptr;
    int start = -5;
    int count = -5;
    AllStacks stacks(jvm.env());
    EXPECT_FALSE(stacks.take());
    sampleThreadStatesJVMTI(jvm.env(), &stacks, &start, &count);
    ourJVMTI = environment;
    EXPECT_EQ(0, count);
}
