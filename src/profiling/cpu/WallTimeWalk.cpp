#include "profiling/cpu/WallTimeWalk.h"

#include "core/ground/UptimeProvider.h"
#include "profiling/cpu/ThreadPlaces.h"
#include "profiling/threads/ZFrameStorage.h"

#include <atomic>

namespace {

const long PERIOD_NS = 100000000;
// What one pass may look at every time. Of more threads each is looked at more rarely, so that
// passes cost the same for any number; it is charged what went by since its own last look.
const int THREADS_OF_A_PASS = 250;

std::atomic<long> ourStartNs{0};
std::atomic<long> ourLastPassNs{0}; // 0 before the first

// A thread that came since the last pass has had no look.
bool hasBeenSeen(const ThreadInfo* info) {
    return info->sampled.place.lookNs >= ourStartNs;
}

long periodNs() {
    LockHolder lock(ourLock, "Sampling:80");
    int threads = 0;
    eachThreadInfo([&](const ThreadInfo* info) { threads += info->threadObject != nullptr; });
    return PERIOD_NS * (1 + threads / THREADS_OF_A_PASS);
}

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
    const long period = periodNs();
    ThreadPlaces places(env);
    places.eachThread(
        [&](const ThreadInfo* info) {
            return !hasBeenSeen(info) || now - info->sampled.place.lookNs >= period;
        },
        [&](ThreadInfo* info, bool) {
            const long last = hasBeenSeen(info) ? info->sampled.place.lookNs : ourLastPassNs.load();
            info->sampled.place.lookNs = now;
            charge(info, last == 0 ? 0 : now - last);
        });
    ourLastPassNs = now;
}

void WallTimeWalk::restart() {
    ourStartNs = getTimeNs();
    ourLastPassNs = 0;
}
