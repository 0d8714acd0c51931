#include "profiling/ThreadInfo.h"

#include "ToyJvm.h"
#include "profiling/FinishedThreads.h"

#include <gtest/gtest.h>

namespace {

ThreadRecord* rowOf(const ThreadInfo& info) {
    return ourDB->threadTable->getRecord(info.threadRecordIndex, false);
}

// A thread that lived, spent time in a frame and ended.
int endThread(int frame, long timeNs) {
    ThreadInfo* info = new ThreadInfo("worker", nullptr, 0, nullptr);
    info->onThreadStart();
    CPUProfilingRecord* row = info->getCPUProfilingRecord(frame, true);
    row->timeNs = timeNs;
    row->stamp = ourDB->currentStamp;
    const int trn = info->trn;
    info->onThreadEnd();
    delete info;
    return trn;
}

int mergedThreadCount() {
    int count = 0;
    ourDB->threadTable->eachRecord(
        [&](int, const ThreadRecord& row) { count += row.tfiThreadIndex == 0; });
    return count;
}

} // namespace

TEST(ThreadInfo, firstRealThreadHasRunningNumberThree) {
    ToyJvm jvm;
    ThreadInfo info("main", "system", 77, nullptr);
    EXPECT_EQ(1, ourOldestFinishedThreads->trn);
    EXPECT_EQ(2, ourVMStartThread->trn);
    EXPECT_EQ(3, info.trn);
    EXPECT_EQ(77, rowOf(info)->nativeThreadID);
    EXPECT_STREQ("system", ourDB->stringPool->getText(rowOf(info)->groupStrID));
    EXPECT_EQ(info.tfiThreadIndex, rowOf(info)->tfiThreadIndex);
}

TEST(ThreadInfo, kindFollowsFromTheName) {
    ToyJvm jvm;
    const struct {
        const char* name;
        bool agent;
        bool calibration;
    } rows[] = {
        {"main", false, false},
        {"VDKAgent-Telemetry", true, false},
        {"VDKAgent-Calibration", true, true},
        {"VDKAgent-Calibration2", true, false},
        {"(GC Main Thread)", true, false},
        {"xVDKAgent-", false, false},
        {"", false, false},
        {nullptr, false, false},
    };
    for (const auto& row : rows) {
        ThreadInfo info(row.name, nullptr, 0, nullptr);
        EXPECT_EQ(row.agent, info.agentThread) << info.getThreadName();
        EXPECT_EQ(row.calibration, info.calibrationThread) << info.getThreadName();
    }
}

TEST(ThreadInfo, renameChangesRowStampAndKind) {
    ToyJvm jvm;
    ThreadInfo info("", nullptr, 0, nullptr);
    EXPECT_FALSE(info.hasName());
    ourDB->currentStamp = 5;
    info.ensureThreadHasName(jvm.env(), ToyJvm::threadOf(0));
    EXPECT_EQ(1, rowOf(info)->stamp) << "the JVM gave no name";
    jvm.names[ToyJvm::threadOf(0)] = "VDKAgent-x";
    info.ensureThreadHasName(jvm.env(), ToyJvm::threadOf(0));
    EXPECT_STREQ("VDKAgent-x", info.getThreadName());
    EXPECT_EQ(5, rowOf(info)->stamp);
    EXPECT_TRUE(info.agentThread);
    ourDB->currentStamp = 6;
    info.ensureThreadHasName(jvm.env(), ToyJvm::threadOf(0));
    EXPECT_EQ(5, rowOf(info)->stamp) << "an equal name is no change";
}

TEST(ThreadInfo, unknownPairIsNotMadeByAsking) {
    ToyJvm jvm;
    ThreadInfo info("main", nullptr, 0, nullptr);
    const long before = ourDB->threadFrameIndex->getAllocatedBytes();
    EXPECT_EQ(nullptr, info.getCPUProfilingRecord(4, false));
    EXPECT_EQ(before, ourDB->threadFrameIndex->getAllocatedBytes());
    CPUProfilingRecord* row = info.getCPUProfilingRecord(4, true);
    EXPECT_EQ(row, info.getCPUProfilingRecord(4, false));
}

TEST(ThreadInfo, startPhaseHasOneThreadForAll) {
    ToyJvm jvm;
    ThreadInfo info("main", nullptr, 0, nullptr);
    jvm.storedInfo = &info;
    EXPECT_EQ(&info, getThreadInfo());
    jvm.phase = JVMTI_PHASE_START;
    EXPECT_EQ(ourVMStartThread, getThreadInfo());
    jvm.phase = JVMTI_PHASE_DEAD;
    EXPECT_EQ(nullptr, getThreadInfo());
}

TEST(FinishedThreads, sixtyFirstEndMergesTheElevenOldest) {
    ToyJvm jvm;
    ourStatus = STACK_TELEMETRY;
    ASSERT_EQ(50, ourOptions->deadThreadLimit);
    for (int i = 0; i < 60; i++) {
        endThread(7, 1000);
    }
    EXPECT_EQ(0, mergedThreadCount());
    EXPECT_EQ(60, FinishedThreads::count());
    endThread(7, 1000);
    EXPECT_EQ(11, mergedThreadCount());
    EXPECT_EQ(50, FinishedThreads::count());
    EXPECT_EQ(11000, ourOldestFinishedThreads->getCPUProfilingRecord(7, false)->timeNs);
    EXPECT_TRUE(ourOldestFinishedThreads->needsWallTimeCorrection);
}

TEST(FinishedThreads, mergedKeyGoesToTheNextThreadAndStartsAtZero) {
    ToyJvm jvm;
    ourStatus = STACK_TELEMETRY;
    for (int i = 0; i < 61; i++) {
        endThread(7, 1000);
    }
    ThreadInfo next("next", nullptr, 0, nullptr);
    EXPECT_LE(next.tfiThreadIndex, 13) << "one of the eleven released keys";
    EXPECT_EQ(nullptr, next.getCPUProfilingRecord(7, false));
    EXPECT_EQ(0, next.getCPUProfilingRecord(7, true)->timeNs);
}

TEST(FinishedThreads, threadsThatEndedWhileNothingWasRecordedGoFirst) {
    ToyJvm jvm;
    ourStatus = STACK_TELEMETRY;
    int firstRecorded = 0;
    for (int i = 0; i < 5; i++) {
        const int trn = endThread(1, 10);
        firstRecorded = firstRecorded == 0 ? trn : firstRecorded;
    }
    ourStatus = 0;
    for (int i = 0; i < 56; i++) {
        endThread(1, 10);
    }
    // Positions 5 to 10 of the list were merged; the five before keep their keys.
    EXPECT_EQ(6, mergedThreadCount());
    ourDB->threadTable->eachRecord([&](int, const ThreadRecord& row) {
        if (row.trn >= firstRecorded && row.trn < firstRecorded + 5) {
            EXPECT_NE(0, row.tfiThreadIndex);
        }
    });
}

TEST(FinishedThreads, firstEndCollectsStringsThatNothingUses) {
    ToyJvm jvm;
    ourDB->stringPool->getDBIndex("unused", true);
    endThread(1, 10);
    EXPECT_EQ(0, ourDB->stringPool->getDBIndex("unused", false));
    ourDB->stringPool->getDBIndex("unused", true);
    endThread(1, 10);
    EXPECT_NE(0, ourDB->stringPool->getDBIndex("unused", false)) << "only each hundredth collects";
}
