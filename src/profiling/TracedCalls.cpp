#include "profiling/TracedCalls.h"

#include "core/ground/Globals.h"
#include "core/ground/Guard.h"
#include "core/ground/Options.h"
#include "core/ground/UptimeProvider.h"
#include "core/jvm/CallbackNatives.h"
#include "db/DB.h"
#include "profiling/CpuTime.h"
#include "profiling/MethodLookup.h"
#include "profiling/ThreadInfo.h"
#include "profiling/Tracing.h"
#include "profiling/TracingSwitch.h"
#include "profiling/ZFrameStorage.h"

TracingSwitch ourTracingSwitch;

namespace {

// Places of getTimeDeltaNs.
const int PLACE_EXIT = 1;
const int PLACE_RESET_CPU = 2;
const int PLACE_RESET_WALL = 3;

// Both clocks of a thread at one moment.
struct ThreadClocks {
    ThreadClocks(const ThreadInfo* info, bool currentThread)
        : cpu(currentThread ? getCurrentThreadCPUTimeNs() : info->readCpuTimeNs()),
          wall(getTimeNs()) {}
    long of(bool isWall) const { return isWall ? wall : cpu; }
    long cpu;
    long wall;
};

bool isWallTime(int method) {
    return (getMethodFlags(method) & METHOD_WALL_TIME) != 0;
}

bool isWallTimeFrame(int frame) {
    return isWallTime(ourFrameStorage.getMethodIndex(frame));
}

long getCurrentThreadTimeNsByMethod(int method) {
    return isWallTime(method) ? getTimeNs() : getCurrentThreadCPUTimeNs();
}

int joinMethodId(jshort low, jshort high) {
    return static_cast<int>(static_cast<unsigned>(high) << 16 | static_cast<unsigned short>(low));
}

// The current thread's state, null if the thread is not traced. Takes no lock.
ThreadInfo* getTracedThread() {
    ThreadInfo* const info = ourVMInitCalled ? getStoredThreadInfo(nullptr) : getThreadInfo();
    if (info == nullptr) {
        return nullptr;
    }
    const bool traced = getCalibration() == -1 ? info->calibrationThread
                                               : !info->agentThread && !info->carrierThread;
    return traced ? info : nullptr;
}

bool isTracing() {
    return (ourStatus & CPU_COUNTS_BIT) != 0;
}

// A frame's time must be at least the sum of its children's.
void checkParent(ThreadInfo* info) {
    const int parent = ourFrameStorage.getParent(info->currentFrame);
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

void forgetStack(ThreadInfo* info) {
    info->currentFrame = ThreadInfo::NO_FRAME;
    info->forgetOpenCalls();
    info->forgetMarkers();
}

void openCall(ThreadInfo* info, long now, long count) {
    info->startTimes.push(now);
    info->startCounts.push(count);
    info->calleeTimes.push(0);
}

// Charges the innermost open call, which stands for frame, with its time up to now. What tracing
// costs is taken off by its average: a call with many cheap calls below it loses more than they
// cost, and so can end up with less than one of them was charged.
void closeCall(ThreadInfo* info, int frame, long now, bool wall, int place) {
    CPUProfilingRecord* const record = info->getCPUProfilingRecord(frame, true);
    const long calls = info->callCounter - info->startCounts.pop();
    const long time = getTimeDeltaNs(now, info->startTimes.pop(), calls, place);
    record->timeNs += time;
    record->stamp = ourDB->currentStamp;
    if (time < info->calleeTimes.pop() || wall || ourOptions->handleBadTimes) {
        info->needsWallTimeCorrection = true;
    }
    if (!info->calleeTimes.isEmpty()) {
        info->calleeTimes.peek() += time;
    }
}

void enterCall(JNIEnv* env, int method) {
    ThreadInfo* const info = getTracedThread();
    if (info == nullptr) {
        return;
    }
    const bool filtered = (getMethodFlags(method) & METHOD_FILTERED) != 0;
    ZVector<bool>& markers = info->ownMarkers();
    const bool collapse = filtered && !markers.isEmpty() && markers.peek();
    markers.push(filtered);
    if (collapse) {
        return;
    }
    // Reading a clock costs as much as the rest, so it is not done under the lock.
    const long now = getCurrentThreadTimeNsByMethod(method);
    LockHolder lock(ourLock, "Instrumentation:679");
    if (!isTracing() || !canEnter(info)) {
        return;
    }
    int frame;
    if (info->currentFrame == ThreadInfo::NO_FRAME) {
        info->markersForgotten = false;
        frame = ourFrameStorage.fillCurrentFrameJVMTI(env, &markers);
        Logger::assertNotEquals(frame, -1, VDK_HERE);
        info->currentFrame = frame;
        info->forgetOpenCalls();
        restoreStackTrace(info, true);
    } else {
        frame = ourFrameStorage.getChild(info->currentFrame, method);
        openCall(info, now, info->callCounter++);
        info->currentFrame = frame;
    }
    Logger::assertNotEquals(frame, 0, VDK_HERE);
    CPUProfilingRecord* const record = info->getCPUProfilingRecord(frame, true);
    record->count++;
    record->stamp = ourDB->currentStamp;
}

void exitCall(int method) {
    ThreadInfo* const info = getTracedThread();
    if (info == nullptr) {
        return;
    }
    ZVector<bool>& markers = info->ownMarkers();
    if (markers.isEmpty()) {
        return;
    }
    const bool filtered = markers.pop();
    if (filtered && !markers.isEmpty() && markers.peek()) {
        return;
    }
    const long now = getCurrentThreadTimeNsByMethod(method);
    LockHolder lock(ourLock, "Instrumentation:755");
    if (!isTracing() || !canEnter(info) || info->currentFrame == ThreadInfo::NO_FRAME) {
        return;
    }
    const int frame = info->currentFrame;
    if (ourFrameStorage.getMethodIndex(frame) != method) {
        // Frames were unwound without an exit call; the next entry rebuilds from the real stack.
        dropStackTrace(info, true);
        return;
    }
    info->currentFrame = ourFrameStorage.getParent(frame);
    closeCall(info, frame, now, isWallTime(method), PLACE_EXIT);
}

} // namespace

bool canEnter(ThreadInfo* info) {
    if (ourVMDeathCalled) {
        if (info != nullptr && info->currentFrame != ThreadInfo::NO_FRAME) {
            dropStackTrace(info, true);
        }
        return false;
    }
    return ourVMInitCalled;
}

void resetStackTrace(ThreadInfo* info, bool currentThread) {
    if (!isTracing()) {
        return;
    }
    Logger::assertNotNULL(info, VDK_HERE);
    if (info->currentFrame == ThreadInfo::NO_FRAME) {
        return;
    }
    const ThreadClocks now(info, currentThread);
    for (int frame = info->currentFrame; frame > 0; frame = ourFrameStorage.getParent(frame)) {
        const bool wall = isWallTimeFrame(frame);
        closeCall(info, frame, now.of(wall), wall, wall ? PLACE_RESET_WALL : PLACE_RESET_CPU);
    }
    Logger::assertTrue(info->startTimes.isEmpty() && info->startCounts.isEmpty(), VDK_HERE);
    if (!info->needsWallTimeCorrection && info->currentFrame > 0) {
        checkParent(info);
    }
}

void restoreStackTrace(ThreadInfo* info, bool currentThread) {
    Logger::assertNotNULL(info, VDK_HERE);
    if (info->currentFrame == ThreadInfo::NO_FRAME) {
        return;
    }
    Logger::assertTrue(info->startTimes.isEmpty() && info->startCounts.isEmpty(), VDK_HERE);
    const ThreadClocks now(info, currentThread);
    for (int frame = info->currentFrame; frame > 0; frame = ourFrameStorage.getParent(frame)) {
        openCall(info, now.of(isWallTimeFrame(frame)), info->callCounter);
    }
    // The outermost frame's entry belongs at the bottom; the counts are all equal.
    for (int low = 0, high = info->startTimes.getSize() - 1; low < high; low++, high--) {
        const long swapped = info->startTimes[low];
        info->startTimes[low] = info->startTimes[high];
        info->startTimes[high] = swapped;
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
    forgetStack(info);
}

void onExceptionThrown() {
    if (!isTracing()) {
        return;
    }
    ThreadInfo* const info = getTracedThread();
    if (info == nullptr) {
        return;
    }
    LockHolder lock(ourLock, "JVMTI_Agent:390");
    dropStackTrace(info, true);
}

void JNICALL exception_handler(jvmtiEnv*, JNIEnv*, jthread, jmethodID, jlocation, jobject,
                               jmethodID, jlocation) {
    runGuarded(VDK_HERE, [] { onExceptionThrown(); });
}

void JNICALL exception_catch(jvmtiEnv*, JNIEnv*, jthread, jmethodID, jlocation, jobject) {}

void JNICALL VDK_CALLBACK_NATIVE(vdkMethodEntry0)(JNIEnv* env, jclass, jshort low, jshort high) {
    runGuarded(VDK_HERE, [&] { enterCall(env, joinMethodId(low, high)); });
}

void JNICALL VDK_CALLBACK_NATIVE(vdkMethodExit0)(JNIEnv*, jclass, jshort low, jshort high) {
    runGuarded(VDK_HERE, [&] { exitCall(joinMethodId(low, high)); });
}
