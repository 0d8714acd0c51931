#include "profiling/cpu/WallTimeWalk.h"

#include "core/ground/UptimeProvider.h"
#include "profiling/cpu/ThreadPlaces.h"
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
    int frame = info->sampled.place.frame;
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

} // namespace

void WallTimeWalk::walkIfDue(JNIEnv* env) {
    const long now = getTimeNs();
    if (now - ourLastPassNs < PERIOD_NS) {
        return;
    }
    const long wallNs = ourLastPassNs == 0 ? 0 : now - ourLastPassNs;
    ourLastPassNs = now;
    ThreadPlaces places(env);
    places.eachThread([](const ThreadInfo*) { return true; },
                      [&](ThreadInfo* info, bool) { charge(info, wallNs); });
}

void WallTimeWalk::restart() {
    ourLastPassNs = 0;
}
