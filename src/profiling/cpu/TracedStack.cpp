#include "profiling/cpu/TracedStack.h"

#include "core/ground/Globals.h"
#include "core/ground/Options.h"
#include "core/ground/UptimeProvider.h"
#include "db/DB.h"
#include "profiling/cpu/Tracing.h"
#include "profiling/threads/ThreadInfo.h"
#include "profiling/threads/ZFrameStorage.h"

namespace {

// Frames of the JVM's stack that are read at most to set a traced one right.
constexpr int DEEPEST_STACK = 1 << 16;
// From so many open calls on, a walk over the JVM's stack for each handler on the way of an
// exception would take seconds; there the nearest place decides.
constexpr int DEEP_RECURSION = 1024;
constexpr int MOST_PATIENCE = 1023;
constexpr uintptr_t MODE_DIFFERENCE = 64;

// The traced calls of the JVM's stack. ourLock.
ZVector<OpenCall>& ourRealCalls = *new ZVector<OpenCall>(1024);

// Both clocks of a thread at one moment.
struct ThreadClocks {
    ThreadClocks(const ThreadInfo* info, bool currentThread)
        : cpu(currentThread ? getCurrentThreadCPUTimeNs() : info->readCpuTimeNs()),
          wall(getTimeNs()) {}
    long of(bool isWall) const { return isWall ? wall : cpu; }
    long cpu;
    long wall;
};

bool isWallTimeFrame(int frame) {
    return isWallTime(ourFrameStorage.getMethodIndex(frame));
}

// A frame's time must be at least the sum of its children's.
void checkParent(ThreadInfo* info) {
    const int parent = ourFrameStorage.getParent(info->traced.currentFrame);
    if (parent < 1) {
        return;
    }
    long sum = 0;
    for (int child = ourFrameStorage.getFirstChild(parent); child != -1;
         child = ourFrameStorage.getNextSibling(child)) {
        const CPUProfilingRecord* const record = info->getCPUProfilingRecord(child, false);
        sum += record == nullptr ? 0 : record->timeNs;
    }
    const CPUProfilingRecord* const record = info->getCPUProfilingRecord(parent, false);
    Logger::assertNotNULL(record, VDK_HERE);
    if (record->timeNs < sum) {
        info->needsWallTimeCorrection = true;
    }
}

void closeFrame(ThreadInfo* info, int frame, const ThreadClocks& now) {
    const bool wall = isWallTimeFrame(frame);
    closeCall(info, frame, now.of(wall), wall, wall ? PLACE_RESET_WALL : PLACE_RESET_CPU);
}

// Of a run of filtered calls only the first has a frame.
bool collapses(const ZVector<OpenCall>& calls, bool filtered) {
    return filtered && !calls.isEmpty() && calls[calls.getSize() - 1].filtered;
}

void closeCallsAbove(ThreadInfo* info, int depth) {
    ZVector<OpenCall>& calls = info->traced.markers;
    int frames = 0;
    while (calls.getSize() > depth) {
        const OpenCall call = calls.pop();
        frames += collapses(calls, call.filtered) ? 0 : 1;
    }
    if (frames == 0) {
        return;
    }
    const ThreadClocks now(info, true);
    for (; frames > 0; frames--) {
        const int frame = info->traced.currentFrame;
        Logger::assertTrue(frame > 0, VDK_HERE);
        closeFrame(info, frame, now);
        info->traced.currentFrame = ourFrameStorage.getParent(frame);
    }
}

// Opens calls that the JVM's stack holds and nobody saw begin.
void openRealCalls(ThreadInfo* info, const ZVector<OpenCall>& real, int from) {
    if (from == real.getSize()) {
        return;
    }
    ZVector<OpenCall>& calls = info->traced.markers;
    const ThreadClocks now(info, true);
    for (int i = from; i < real.getSize(); i++) {
        const OpenCall& call = real[i];
        const bool hasFrame = !collapses(calls, call.filtered);
        calls.push(call);
        if (hasFrame) {
            info->traced.currentFrame =
                ourFrameStorage.getChild(info->traced.currentFrame, call.method);
            openCall(info, now.of(isWallTime(call.method)), info->traced.callCounter);
        }
    }
}

void noteLook(ThreadInfo* info, bool cut) {
    StackWatch& watch = info->traced.watch;
    watch.cut = cut;
    const int depth = info->traced.markers.getSize();
    watch.nextLook = 2 * depth > StackWatch::LEAST_LOOK ? 2 * depth : StackWatch::LEAST_LOOK;
    // A walk over a deep stack takes milliseconds, and an error may call at each level of it.
    if (depth > DEEP_RECURSION && watch.patience < depth / 8) {
        watch.patience = depth / 8;
    }
}

int nextOuter(const ZVector<OpenCall>& calls, int method, int from) {
    while (from >= 0 && calls[from].method != method) {
        from--;
    }
    return from;
}

// Entry calls from compiled code need less of the stack than interpreted ones.
bool isBelow(uintptr_t place, uintptr_t caller) {
    return place < caller || place - caller < MODE_DIFFERENCE;
}

bool runsOutOfPatience(ThreadInfo* info) {
    StackWatch& watch = info->traced.watch;
    if (info->traced.markers.getSize() <= DEEP_RECURSION && watch.patience > watch.falseAlarms) {
        watch.patience = watch.falseAlarms; // what was deep is left
    }
    return --watch.patience < 0;
}

} // namespace

bool isWallTime(int method) {
    return (getMethodFlags(method) & METHOD_WALL_TIME) != 0;
}

void openCall(ThreadInfo* info, long now, long count) {
    info->traced.startTimes.push(now);
    info->traced.startCounts.push(count);
    info->traced.calleeTimes.push(0);
}

// What tracing costs is taken off by its average: a call with many cheap calls below it loses more
// than they cost, and so can end up with less than one of them was charged.
void closeCall(ThreadInfo* info, int frame, long now, bool wall, int place) {
    CPUProfilingRecord* const record = info->getCPUProfilingRecord(frame, true);
    const long calls = info->traced.callCounter - info->traced.startCounts.pop();
    const long time = getTimeDeltaNs(now, info->traced.startTimes.pop(), calls, place);
    record->timeNs += time;
    record->stamp = ourDB->currentStamp;
    if (time < info->traced.calleeTimes.pop() || wall || ourOptions->handleBadTimes) {
        info->needsWallTimeCorrection = true;
    }
    if (!info->traced.calleeTimes.isEmpty()) {
        info->traced.calleeTimes.peek() += time;
    }
}

void resetStackTrace(ThreadInfo* info, bool currentThread) {
    if ((ourStatus & CPU_COUNTS_BIT) == 0) {
        return;
    }
    Logger::assertNotNULL(info, VDK_HERE);
    if (info->traced.currentFrame == TracedStack::NO_FRAME) {
        return;
    }
    const ThreadClocks now(info, currentThread);
    for (int frame = info->traced.currentFrame; frame > 0;
         frame = ourFrameStorage.getParent(frame)) {
        closeFrame(info, frame, now);
    }
    Logger::assertTrue(info->traced.startTimes.isEmpty() && info->traced.startCounts.isEmpty(),
                       VDK_HERE);
    if (!info->needsWallTimeCorrection && info->traced.currentFrame > 0) {
        checkParent(info);
    }
}

void restoreStackTrace(ThreadInfo* info, bool currentThread) {
    Logger::assertNotNULL(info, VDK_HERE);
    if (info->traced.currentFrame == TracedStack::NO_FRAME) {
        return;
    }
    Logger::assertTrue(info->traced.startTimes.isEmpty() && info->traced.startCounts.isEmpty(),
                       VDK_HERE);
    const ThreadClocks now(info, currentThread);
    for (int frame = info->traced.currentFrame; frame > 0;
         frame = ourFrameStorage.getParent(frame)) {
        openCall(info, now.of(isWallTimeFrame(frame)), info->traced.callCounter);
    }
    // The outermost frame's entry belongs at the bottom; the counts are all equal.
    for (int low = 0, high = info->traced.startTimes.getSize() - 1; low < high; low++, high--) {
        const long swapped = info->traced.startTimes[low];
        info->traced.startTimes[low] = info->traced.startTimes[high];
        info->traced.startTimes[high] = swapped;
    }
}

void resetStackTraceForAllThreads() {
    eachThreadInfo([](ThreadInfo* info) { resetStackTrace(info, false); });
}

void restoreStackTraceForAllThreads() {
    eachThreadInfo([](ThreadInfo* info) { restoreStackTrace(info, false); });
}

void dropStackTrace(ThreadInfo* info, bool currentThread) {
    resetStackTrace(info, currentThread);
    info->traced.forget();
}

void rebuildStackTrace(JNIEnv* env, ThreadInfo* info) {
    info->traced.markersForgotten = false;
    bool cut = false;
    info->traced.currentFrame =
        ourFrameStorage.fillCurrentFrameJVMTI(env, &info->traced.markers, &cut);
    Logger::assertNotEquals(info->traced.currentFrame, -1, VDK_HERE);
    info->traced.forgetOpenCalls();
    restoreStackTrace(info, true);
    noteLook(info, cut);
}

bool followRealStack(JNIEnv* env, ThreadInfo* info, int except) {
    ZVector<OpenCall>& real = ourRealCalls;
    const bool whole = readTracedCalls(env, DEEPEST_STACK, real);
    if (except != NO_METHOD && !real.isEmpty() && real.peek().method == except) {
        real.pop();
    }
    ZVector<OpenCall>& calls = info->traced.ownMarkers();
    if (info->traced.currentFrame == TracedStack::NO_FRAME) {
        info->traced.forgetOpenCalls();
        calls.clear();
        info->traced.currentFrame = 0;
    }
    int common = 0;
    if (whole && !info->traced.watch.cut) {
        const int most = calls.getSize() < real.getSize() ? calls.getSize() : real.getSize();
        while (common < most && calls[common].method == real[common].method) {
            common++;
        }
    }
    const bool hadEnded = common < calls.getSize();
    closeCallsAbove(info, common);
    openRealCalls(info, real, common);
    noteLook(info, !whole);
    return hadEnded;
}

void followAfterAlarm(JNIEnv* env, ThreadInfo* info, int except, uintptr_t place) {
    StackWatch& watch = info->traced.watch;
    if (followRealStack(env, info, except)) {
        watch.falseAlarms = 0;
    } else {
        watch.falseAlarms =
            watch.falseAlarms < MOST_PATIENCE ? watch.falseAlarms * 2 + 1 : MOST_PATIENCE;
        if (!info->traced.markers.isEmpty() && info->traced.markers.peek().place < place) {
            info->traced.markers.peek().place = place; // the JIT has moved its frame
        }
    }
    if (watch.patience < watch.falseAlarms) {
        watch.patience = watch.falseAlarms;
    }
}

int findActivation(ThreadInfo* info, int method, uintptr_t place) {
    const ZVector<OpenCall>& calls = info->traced.markers;
    const StackWatch& watch = info->traced.watch;
    const int innermost = nextOuter(calls, method, calls.getSize() - 1);
    if (watch.cut || innermost < 0) {
        return 0;
    }
    if (nextOuter(calls, method, innermost - 1) < 0) {
        return innermost + 1;
    }
    const bool isDeep = calls.getSize() > DEEP_RECURSION;
    if (place == 0 || watch.catcher != method) {
        return isDeep && !runsOutOfPatience(info) ? innermost + 1 : 0;
    }
    const uintptr_t entry = place + watch.catchDistance;
    int inner = -1;
    for (int i = innermost; i >= 0; i = nextOuter(calls, method, i - 1)) {
        if (calls[i].place < entry) {
            inner = i;
            continue;
        }
        if (isDeep) {
            const bool isNearer = inner < 0 || calls[i].place - entry <= entry - calls[inner].place;
            return (isNearer ? i : inner) + 1;
        }
        const int outer = nextOuter(calls, method, i - 1);
        const bool isTheOne = calls[i].place == entry && (outer < 0 || calls[outer].place != entry);
        return isTheOne ? i + 1 : 0;
    }
    return isDeep ? inner + 1 : 0;
}

void unwindTo(JNIEnv* env, ThreadInfo* info, int depth) {
    if (depth > 0 && info->traced.currentFrame != TracedStack::NO_FRAME) {
        closeCallsAbove(info, depth);
    } else {
        followRealStack(env, info, NO_METHOD);
    }
}

void rememberCatcher(ThreadInfo* info, int method, uintptr_t place) {
    if (info->traced.markers.isEmpty()) {
        return;
    }
    const OpenCall& call = info->traced.markers.peek();
    const bool isKnown = call.method == method && call.place != OpenCall::UNKNOWN_PLACE;
    info->traced.watch.catcher = isKnown ? method : -1;
    info->traced.watch.catchDistance = call.place - place;
}

bool isSuspiciousEntry(ThreadInfo* info, int method, uintptr_t place) {
    ZVector<OpenCall>& calls = info->traced.markers;
    if (calls.isEmpty()) {
        return false;
    }
    if (calls.getSize() >= info->traced.watch.nextLook) {
        return true;
    }
    const OpenCall& top = calls.peek();
    const bool isPossible =
        isBelow(place, top.place) && (place != top.place || method != top.method);
    return !isPossible && runsOutOfPatience(info);
}

bool isSuspiciousExit(ThreadInfo* info, uintptr_t place) {
    ZVector<OpenCall>& calls = info->traced.markers;
    const int depth = calls.getSize();
    const bool isPossible =
        depth < 2 || place == calls[depth - 1].place || isBelow(place, calls[depth - 2].place);
    return !isPossible && runsOutOfPatience(info);
}
