#include "snapshot/SuspendedThreads.h"

#include "profiling/ToyJvm.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

using testing::ElementsAre;

namespace {

class SuspendedThreadsTest : public testing::Test {
protected:
    SuspendedThreadsTest() {
        for (size_t i = 0; i < 4; i++) {
            jvm.threads.push_back(ToyJvm::threadOf(i));
        }
        jvm.currentThread = ToyJvm::threadOf(1);
    }

    ToyJvm jvm;
};

} // namespace

TEST_F(SuspendedThreadsTest, othersStopAndRunAgainInOrder) {
    {
        SuspendedThreads suspended(jvm.env());
        EXPECT_EQ(3, suspended.getCount());
        EXPECT_THAT(jvm.calls, ElementsAre("add", "suspend 0", "suspend 2", "suspend 3"));
        jvm.calls.clear();
    }
    EXPECT_THAT(jvm.calls, ElementsAre("resume 0", "resume 2", "resume 3", "give back"));
}

TEST_F(SuspendedThreadsTest, threadsThatSomebodyElseSuspendedAreNotResumed) {
    jvm.suspendErrors[ToyJvm::threadOf(0)] = JVMTI_ERROR_THREAD_SUSPENDED;
    jvm.suspendErrors[ToyJvm::threadOf(3)] = JVMTI_ERROR_THREAD_NOT_ALIVE;
    {
        SuspendedThreads suspended(jvm.env());
        jvm.calls.clear();
    }
    EXPECT_THAT(jvm.calls, ElementsAre("resume 2", "give back"));
}

TEST_F(SuspendedThreadsTest, callerThatIsNoPlatformThreadSuspendsNothing) {
    jvm.currentThread = ToyJvm::threadOf(9);
    { SuspendedThreads suspended(jvm.env()); }
    EXPECT_THAT(jvm.calls, ElementsAre("add", "give back"));
}

TEST_F(SuspendedThreadsTest, debuggerThatHoldsTheRightLeavesTheApplicationRunning) {
    jvm.addCapabilitiesError = JVMTI_ERROR_NOT_AVAILABLE;
    {
        SuspendedThreads suspended(jvm.env());
        EXPECT_EQ(0, suspended.getCount());
    }
    EXPECT_THAT(jvm.calls, ElementsAre("add"));
}
