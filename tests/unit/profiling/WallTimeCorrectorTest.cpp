#include "profiling/cpu/WallTimeCorrector.h"

#include "ToyJvm.h"
#include "profiling/threads/ZFrameStorage.h"

#include <gtest/gtest.h>

namespace {

void setTime(ThreadInfo& info, int frame, long timeNs) {
    CPUProfilingRecord* row = info.getCPUProfilingRecord(frame, true);
    row->timeNs = timeNs;
    row->stamp = ourDB->currentStamp;
}

long timeOf(ThreadInfo& info, int frame) {
    const CPUProfilingRecord* row = info.getCPUProfilingRecord(frame, false);
    return row == nullptr ? -1 : row->timeNs;
}

void correct(ThreadInfo& info) {
    WallTimeCorrector corrector;
    corrector.scheduleForCorrection(&info);
    corrector.correctWallTimes();
}

} // namespace

TEST(WallTimeCorrector, parentBelowItsChildrenIsRaisedUpToTheRoot) {
    ToyJvm jvm;
    ThreadInfo info("main", nullptr, 0, nullptr);
    const int outer = ourFrameStorage.getChild(0, 1);
    const int parent = ourFrameStorage.getChild(outer, 2);
    const int left = ourFrameStorage.getChild(parent, 3);
    const int right = ourFrameStorage.getChild(parent, 4);
    setTime(info, outer, 6);
    setTime(info, parent, 5);
    setTime(info, left, 3);
    setTime(info, right, 4);
    correct(info);
    EXPECT_EQ(5, timeOf(info, parent)) << "it is not flagged";
    info.needsWallTimeCorrection = true;
    ThreadInfo other("other", nullptr, 0, nullptr);
    other.needsWallTimeCorrection = true;
    correct(other);
    EXPECT_EQ(-1, timeOf(other, parent)) << "a row for nothing";
    correct(info);
    EXPECT_EQ(7, timeOf(info, parent));
    EXPECT_EQ(7, timeOf(info, outer));
    EXPECT_FALSE(info.needsWallTimeCorrection);
}

TEST(WallTimeCorrector, deepTreesNeedNoDeepNativeStack) {
    ToyJvm jvm;
    ThreadInfo info("main", nullptr, 0, nullptr);
    int frame = 0;
    int first = 0;
    for (int i = 0; i < 100000; i++) {
        frame = ourFrameStorage.getChild(frame, 1);
        first = first == 0 ? frame : first;
    }
    setTime(info, frame, 12);
    info.needsWallTimeCorrection = true;
    correct(info);
    EXPECT_EQ(12, timeOf(info, first));
}

TEST(WallTimeCorrector, threadThatEndedFlaggedIsCorrectedOnce) {
    ToyJvm jvm;
    ThreadInfo* info = new ThreadInfo("short", nullptr, 0, nullptr);
    info->onThreadStart();
    const int parent = ourFrameStorage.getChild(0, 1);
    setTime(*info, parent, 5);
    setTime(*info, ourFrameStorage.getChild(parent, 2), 9);
    const int thread = info->tfiThreadIndex;
    info->needsWallTimeCorrection = true;
    info->onThreadEnd();
    delete info;

    const int tfi = ourDB->threadFrameIndex->getTFI(thread, parent, false);
    WallTimeCorrector corrector;
    corrector.scheduleEndedThreads();
    corrector.correctWallTimes();
    EXPECT_EQ(9, ourDB->cpuProfilingTable->getRecord(tfi, true)->timeNs);

    ourDB->cpuProfilingTable->getRecord(tfi, true)->timeNs = 5;
    corrector.scheduleEndedThreads();
    corrector.correctWallTimes();
    EXPECT_EQ(5, ourDB->cpuProfilingTable->getRecord(tfi, true)->timeNs);
}
