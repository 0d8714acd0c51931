#include "profiling/memory/AllocationRecorder.h"

#include "ToyJvm.h"
#include "profiling/threads/CarrierThread.h"

#include <gtest/gtest.h>

namespace {

class AllocationRecorder : public testing::Test {
protected:
    AllocationRecorder() : info("main", nullptr, 0, nullptr) {
        jvm.storedInfo = &info;
        jvm.stack = {jvm.addMethod("Lp/A;", "run", "()V")};
    }
    ~AllocationRecorder() override {
        ourAllocationRecordingSettings = {};
        setNativeThreadInfo(nullptr);
    }

    // Sizes of those that were recorded, of objects of 1, 2, 3... bytes in this order.
    std::vector<size_t> record(int objects) {
        ourStatus = ALLOCATION_RECORDING_BIT;
        jvm.tags.clear();
        jvm.sizesAsked = 0;
        for (int i = 1; i <= objects; i++) {
            vdkInitImpl(jvm.env(), reinterpret_cast<jobject>(static_cast<size_t>(i)), -1);
        }
        std::vector<size_t> recorded;
        for (const auto& [object, tag] : jvm.tags) {
            if (tag != 0) {
                recorded.push_back(reinterpret_cast<size_t>(object));
            }
        }
        return recorded;
    }

    ToyJvm jvm;
    ThreadInfo info;
};

} // namespace

TEST_F(AllocationRecorder, recordsEveryNthAndAsksForNoOtherSize) {
    ourAllocationRecordingSettings = {true, 3, false, 0, false};
    EXPECT_EQ((std::vector<size_t>{3, 6, 9}), record(9));
    EXPECT_EQ(3, jvm.sizesAsked);
    ourAllocationRecordingSettings = {true, 3, true, 8, false};
    EXPECT_EQ((std::vector<size_t>{3, 6, 8, 9}), record(9));
    ourAllocationRecordingSettings = {false, 0, true, 7, false};
    EXPECT_EQ((std::vector<size_t>{7, 8, 9}), record(9));
    ourAllocationRecordingSettings = {true, 1, false, 0, false};
    info.agentThread = true;
    EXPECT_TRUE(record(9).empty()) << "of an agent thread";
}

TEST_F(AllocationRecorder, givesSamplingBackThatItCannotUse) {
    jvm.samplingIntervalError = JVMTI_ERROR_ILLEGAL_ARGUMENT;
    EXPECT_FALSE(startSampledAllocationRecording(jvm.env(), 1000, false).isEmpty());
    EXPECT_EQ((std::vector<std::string>{"add", "give back"}), jvm.calls);
    EXPECT_EQ(0, ourStatus);
}
