#include "profiling/cpu/WallTimeCorrector.h"

#include "core/ground/ZSet.h"
#include "profiling/threads/ThreadInfo.h"
#include "profiling/threads/ZFrameStorage.h"

namespace {

// tfiThreadIndex values of flagged threads that ended. Bounded, since indices of merged threads are
// given out again: a thread that then has the index is merely looked at once too often.
ZVector<int>& ourEndedThreads = *new ZVector<int>();
ZSet<int>& ourEndedThreadSet = *new ZSet<int>(16);

} // namespace

void WallTimeCorrector::threadEnds(ThreadInfo* info) {
    Logger::assertNotNULL(info, VDK_HERE);
    if (info->needsWallTimeCorrection && !ourEndedThreadSet.contains(info->tfiThreadIndex)) {
        ourEndedThreadSet.add(info->tfiThreadIndex);
        ourEndedThreads.push(info->tfiThreadIndex);
    }
}

void WallTimeCorrector::scheduleEndedThreads() {
    for (int i = 0; i < ourEndedThreads.getSize(); i++) {
        scheduled.push(ourEndedThreads[i]);
    }
    ourEndedThreads.clear();
    ourEndedThreadSet.clear();
}

void WallTimeCorrector::scheduleForCorrection(ThreadInfo* info) {
    Logger::assertNotNULL(info, VDK_HERE);
    if (info->needsWallTimeCorrection) {
        scheduled.push(info->tfiThreadIndex);
        info->needsWallTimeCorrection = false;
    }
}

void WallTimeCorrector::correctWallTimes() {
    if (scheduled.isEmpty()) {
        return;
    }
    // Post-order with explicit stacks: a stack of frames can be thousands deep.
    ZVector<int> frames;
    ZVector<int> lastChildren;
    frames.push(0);
    lastChildren.push(0);
    while (!frames.isEmpty()) {
        const int frame = frames.pop();
        const int last = lastChildren.pop();
        const int next =
            last == 0 ? ourFrameStorage.getFirstChild(frame) : ourFrameStorage.getNextSibling(last);
        if (next != -1) {
            frames.push(frame);
            lastChildren.push(next);
            frames.push(next);
            lastChildren.push(0);
        } else if (last != 0) {
            correctFrame(frame);
        }
    }
    scheduled.clear();
}

void WallTimeCorrector::correctFrame(int frame) {
    ThreadFrameIndex* index = ourDB->threadFrameIndex;
    for (int i = 0; i < scheduled.getSize(); i++) {
        const int thread = scheduled[i];
        long sum = 0;
        for (int child = ourFrameStorage.getFirstChild(frame); child != -1;
             child = ourFrameStorage.getNextSibling(child)) {
            const int tfi = index->getTFI(thread, child, false);
            if (tfi >= 0) {
                sum += ourDB->cpuProfilingTable->getRecord(tfi, true)->timeNs;
            }
        }
        if (sum != 0) {
            CPUProfilingRecord* row =
                ourDB->cpuProfilingTable->getRecord(index->getTFI(thread, frame, true), true);
            if (row->timeNs < sum) {
                row->timeNs = sum;
            }
            row->stamp = ourDB->currentStamp;
        }
    }
}
