#include "profiling/cpu/WallTimeWalk.h"

#include "core/ground/Globals.h"
#include "core/ground/UptimeProvider.h"
#include "profiling/cpu/Sampling.h"
#include "profiling/threads/AllStacks.h"
#include "profiling/threads/ThreadInfo.h"
#include "profiling/threads/ZFrameStorage.h"

#include <atomic>

namespace {

const long PERIOD_NS = 100000000;

// 0 before the first.
std::atomic<long> ourLastPassNs{0};

bool isMeasured(int frame) {
    return frame > 0 &&
           (getMethodFlags(ourFrameStorage.getMethodIndex(frame)) & METHOD_WALL_TIME) != 0;
}

// From the innermost frame that is measured in wall time upward.
void charge(ThreadInfo* info, long wallNs) {
    int frame = info->sampled.wallFrame;
    if (frame <= 0 || (getMethodFlags(ourFrameStorage.getMethodIndex(frame)) & METHOD_WAIT) != 0) {
        return;
    }
    while (frame > 0 && !isMeasured(frame)) {
        frame = ourFrameStorage.getParent(frame);
    }
    info->needsWallTimeCorrection = info->needsWallTimeCorrection || frame > 0;
    for (; frame > 0; frame = ourFrameStorage.getParent(frame)) {
        CPUProfilingRecord* const row = info->getCPUProfilingRecord(frame, true);
        row->timeNs += wallNs;
        row->stamp = ourDB->currentStamp;
    }
}

// Those that ran since the last pass, and what their clocks say; the others are charged at once.
void sortOut(JNIEnv* env, long wallNs, ZVector<jthread>* moved) {
    LockHolder lock(ourLock);
    eachThreadInfo([&](ThreadInfo* info) {
        if (info->agentThread || info->threadObject == nullptr) {
            return;
        }
        const long now = info->readCpuTimeNs();
        if (now != 0 && now == info->sampled.wallCpuTimeNs) {
            charge(info, wallNs);
            return;
        }
        // Before the stack is taken: a thread that runs in between is asked again.
        info->sampled.wallCpuTimeNs = now;
        info->sampled.wallFrame = 0;
        moved->push(static_cast<jthread>(env->NewLocalRef(info->threadObject)));
    });
}

} // namespace

void WallTimeWalk::walkIfDue(JNIEnv* env) {
    const long now = getTimeNs();
    if (now - ourLastPassNs < PERIOD_NS) {
        return;
    }
    const long wallNs = ourLastPassNs == 0 ? 0 : now - ourLastPassNs;
    ourLastPassNs = now;
    AllStacks stacks(env);
    ZVector<jthread> moved;
    sortOut(env, wallNs, &moved);
    if (stacks.take(moved)) {
        stacks.takeMounted();
        LockHolder lock(ourLock);
        stacks.eachThread([&](ThreadInfo* info, const jvmtiStackInfo& stack) {
            info->sampled.wallFrame =
                ourFrameStorage.skipHidden(ourFrameStorage.fillCurrentFrameJVMTIFromStackInfo(
                    env, stack, &info->sampled.lastStack));
            charge(info, wallNs);
        });
    }
    for (int i = 0; i < moved.getSize(); i++) {
        env->DeleteLocalRef(moved[i]);
    }
}

void WallTimeWalk::restart() {
    ourLastPassNs = 0;
}
