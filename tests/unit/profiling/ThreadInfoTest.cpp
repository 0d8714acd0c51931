#include "profiling/threads/ThreadInfo.h"

#include "ToyJvm.h"
#include "profiling/threads/FinishedThreads.h"

#include <gtest/gtest.h>
#include <vector>

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
        [&](int, const ThreadRecord& row) { count += row.stamp > 0 && row.tfiThreadIndex == 0; });
    return count;
}

} // namespace

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

TEST(FinishedThreads, sixtyFirstEndMergesTheElevenOldestAndTheirKeysAreGivenAnew) {
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

TEST(FinishedThreads, rowsOfThreadsThatNothingNamesAreUsedAgain) {
    ToyJvm jvm;
    ourStatus = STACK_TELEMETRY;
    // One row of each kind that can name a thread; all of these threads end among the first.
    const int table = ourDB->createUserTableByDescription("T\n2\nthread\n0\nthread.end\n0\n");
    int* userRow = ourDB->getUserTable(table)->getRecord(0, true);
    ThreadStateRecord* state = ourDB->threadStateTable->getRecord(0, true);
    ExceptionRecord* exception = ourDB->exceptionTable->getRecord(1, true);
    MonitorRecord* monitor = ourDB->monitorTable->getRecord(1, true);
    MonitorRecord* deleted = ourDB->monitorTable->getRecord(2, true);
    std::vector<int> named;
    for (int* place : {&userRow[1], &userRow[2], &state->trn, &exception->trn, &monitor->ownerTRN,
                       &deleted->ownerTRN}) {
        *place = endThread(7, 1000);
        named.push_back(*place);
    }
    userRow[0] = -1; // still open
    state->stamp = exception->stamp = monitor->stamp = 1;
    deleted->stamp = -1;
    named.pop_back();
    ourDB->currentStamp = 9;
    const auto rowsOfNamed = [&] {
        int count = 0;
        ourDB->threadTable->eachRecord([&](int, const ThreadRecord& row) {
            count += row.stamp > 0 && row.trn <= named.back() && row.trn >= named.front();
        });
        return count;
    };
    for (int i = 0; i < 5000; i++) {
        endThread(7, 1000);
    }
    EXPECT_EQ(1280, ourDB->threadTable->getCapacity());
    EXPECT_EQ(5, rowsOfNamed());
    EXPECT_EQ(1000L * (5006 - FinishedThreads::count()),
              ourOldestFinishedThreads->getCPUProfilingRecord(7, false)->timeNs);
    // The row of the thread that only a deleted row named went, and told clients so.
    state->stamp = -1;
    FinishedThreads::freeUnnamedRows();
    EXPECT_EQ(4, rowsOfNamed());
    EXPECT_GT(mergedThreadCount(), 0);
    bool neutral = false;
    ourDB->threadTable->eachRecord([&](int, const ThreadRecord& row) {
        neutral = neutral || (row.stamp == -9 && row.trn == 0 && row.nameStrID == 0);
    });
    EXPECT_TRUE(neutral);
}

TEST(FinishedThreads, searchForUnnamedRowsWaitsUntilItHasEarnedItsWalk) {
    ToyJvm jvm;
    ourStatus = STACK_TELEMETRY;
    for (int row = 0; row < 1000000; row += 256) {
        ourDB->threadStateTable->setRecordModificationStamp(row, 1);
    }
    FinishedThreads::freeUnnamedRows();
    for (int i = 0; i < 3000; i++) {
        endThread(7, 1000);
    }
    EXPECT_GT(mergedThreadCount(), 2900);
    for (int i = 0; i < 2000; i++) {
        endThread(7, 1000);
    }
    EXPECT_LT(mergedThreadCount(), 2000);
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
