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

void closeFrame(ThreadInfo* info, const ThreadClocks& now) {
    const bool wall = isWallTime(info->traced.frames.peek().method);
    closeCall(info, now.of(wall), wall, wall ? PLACE_RESET_WALL : PLACE_RESET_CPU);
}

void charge(ThreadInfo* info, int frame, long count, long timeNs) {
    CPUProfilingRecord* const record = info->getCPUProfilingRecord(frame, true);
    record->count += count;
    record->timeNs += timeNs;
    record->stamp = ourDB->currentStamp;
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
        Logger::assertTrue(info->traced.currentFrame > 0, VDK_HERE);
        closeFrame(info, now);
        info->traced.currentFrame = ourFrameStorage.getParent(info->traced.currentFrame);
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
            const int frame = ourFrameStorage.getChild(info->traced.currentFrame, call.method);
            openCall(info, frame, call.method, now.of(call.wall), info->traced.callCounter);
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

void openCall(ThreadInfo* info, int frame, int method, long now, long count) {
    info->traced.frames.push({now, count, 0, frame, method, 0});
    info->traced.currentFrame = frame;
}

namespace {

// What tracing costs is taken off by its average: a call with many cheap calls below it loses more
// than they cost, and so can end up with less than one of them was charged.
long endInnermost(TracedStack& traced, long now, bool wall, int place) {
    const OpenFrame ended = traced.frames.pop();
    const long calls = traced.callCounter - ended.startCount;
    const long time = getTimeDeltaNs(now, ended.startTime, calls, place);
    if (time < ended.calleeTime || wall || ourOptions->handleBadTimes) {
        traced.hasBadTimes = true;
    }
    if (!traced.frames.isEmpty()) {
        traced.frames.peek().calleeTime += time;
    }
    return time;
}

} // namespace

void closeCall(ThreadInfo* info, long now, bool wall, int place) {
    const int frame = info->traced.frames.peek().frame;
    charge(info, frame, 0, endInnermost(info->traced, now, wall, place));
}

void TracedStack::takeKeptCalls() {
    KeptCalls::Run* const run = kept;
    if (run == nullptr) {
        return;
    }
    run->shut();
    if (markersForgotten.exchange(false)) {
        markers.clear();
        run->count = 0;
    }
    // Nobody saw where they were entered, but it was below the call that they are kept behind.
    const uintptr_t place = markers.isEmpty() ? OpenCall::UNKNOWN_PLACE : markers.peek().place;
    for (int i = 0; i < run->count; i++) {
        markers.push({run->methods[i], true, false, place});
    }
    run->count = 0;
}

void TracedStack::letCallsBeKept(JNIEnv* env) {
    if (!KeptCalls::isReady() || markers.isEmpty() || !markers.peek().filtered) {
        return;
    }
    if (!isKeptTried) {
        isKeptTried = true;
        kept = KeptCalls::claim(env);
    }
    KeptCalls::Run* const run = kept;
    if (run != nullptr) {
        run->open();
        if (markersForgotten) {
            run->shut(); // whoever forgot them may have shut it before
        }
    }
}

bool TracedStack::openKnown(int method, long now) {
    CallCache::Call* const call = cache.find(currentFrame, method);
    if (call == nullptr || frames.getSize() == frames.getCapacity()) {
        return false;
    }
    cache.charge(call, 1, 0);
    frames.push({now, callCounter++, 0, call->frame, method, cache.slotOf(call)});
    currentFrame = call->frame;
    return true;
}

bool TracedStack::closeKnown(int method, long now, bool wall) {
    if (frames.isEmpty() || frames.peek().method != method) {
        return false;
    }
    const int depth = frames.getSize();
    const int parent = depth == 1 ? 0 : frames[depth - 2].frame;
    CallCache::Call* const call = cache.findAt(frames.peek().slot, parent, method);
    if (call == nullptr) {
        return false;
    }
    cache.charge(call, 0, endInnermost(*this, now, wall, PLACE_EXIT));
    currentFrame = parent;
    return true;
}

bool TracedStack::enterKnown(int method, long now) {
    if (!fastPath.enter()) {
        return false;
    }
    const bool isDone = openKnown(method, now);
    fastPath.leave();
    return isDone;
}

bool TracedStack::leaveKnown(int method, long now, bool wall) {
    if (!fastPath.enter()) {
        return false;
    }
    const bool isDone = closeKnown(method, now, wall);
    fastPath.leave();
    return isDone;
}

void learnCall(ThreadInfo* info, int parent, int method, int frame) {
    info->traced.cache.learn(parent, method, frame, [info](const CallCache::Call& call) {
        charge(info, call.frame, call.count, call.timeNs);
    });
}

namespace {

void foldFlag(ThreadInfo* info) {
    if (info->traced.hasBadTimes) {
        info->needsWallTimeCorrection = true;
        info->traced.hasBadTimes = false;
    }
}

} // namespace

void foldTracedTimes(ThreadInfo* info) {
    info->traced.cache.foldAll(
        [info](const CallCache::Call& call) { charge(info, call.frame, call.count, call.timeNs); });
    foldFlag(info);
}

void foldTracedTime(ThreadInfo* info, int frame) {
    info->traced.cache.foldCall(
        ourFrameStorage.getParent(frame), ourFrameStorage.getMethodIndex(frame),
        [info](const CallCache::Call& call) { charge(info, call.frame, call.count, call.timeNs); });
    foldFlag(info);
}

void resetStackTrace(ThreadInfo* info, bool currentThread) {
    Logger::assertNotNULL(info, VDK_HERE);
    info->traced.fastPath.shut();
    foldTracedTimes(info);
    if ((ourStatus & CPU_COUNTS_BIT) == 0 || info->traced.currentFrame == TracedStack::NO_FRAME) {
        return;
    }
    const ThreadClocks now(info, currentThread);
    while (!info->traced.frames.isEmpty()) {
        closeFrame(info, now);
    }
    foldFlag(info);
    if (!info->needsWallTimeCorrection && info->traced.currentFrame > 0) {
        checkParent(info);
    }
}

void restoreStackTrace(ThreadInfo* info, bool currentThread) {
    Logger::assertNotNULL(info, VDK_HERE);
    ZVector<OpenFrame>& frames = info->traced.frames;
    if (info->traced.currentFrame == TracedStack::NO_FRAME) {
        return;
    }
    Logger::assertTrue(frames.isEmpty(), VDK_HERE);
    const ThreadClocks now(info, currentThread);
    const int innermost = info->traced.currentFrame;
    for (int frame = innermost; frame > 0; frame = ourFrameStorage.getParent(frame)) {
        const int method = ourFrameStorage.getMethodIndex(frame);
        openCall(info, frame, method, now.of(isWallTime(method)), info->traced.callCounter);
    }
    info->traced.currentFrame = innermost;
    // The outermost frame belongs at the bottom.
    for (int low = 0, high = frames.getSize() - 1; low < high; low++, high--) {
        const OpenFrame swapped = frames[low];
        frames[low] = frames[high];
        frames[high] = swapped;
    }
    info->traced.fastPath.open();
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
    info->traced.frames.clear();
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
        info->traced.frames.clear();
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
