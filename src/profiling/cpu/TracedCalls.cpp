#include "profiling/cpu/TracedCalls.h"

#include "core/ground/Globals.h"
#include "core/ground/Guard.h"
#include "core/ground/UptimeProvider.h"
#include "core/jvm/CallbackNatives.h"
#include "core/jvm/EventGate.h"
#include "db/DB.h"
#include "profiling/cpu/J2EEHelper.h"
#include "profiling/cpu/TracedStack.h"
#include "profiling/cpu/Tracing.h"
#include "profiling/events/Exceptions.h"
#include "profiling/threads/CarrierThread.h"
#include "profiling/threads/MethodLookup.h"
#include "profiling/threads/ThreadInfo.h"
#include "profiling/threads/ZFrameStorage.h"

namespace {

long getCurrentThreadTimeNs(bool wall) {
    return wall ? getTimeNs() : getCurrentThreadCPUTimeNs();
}

int joinMethodId(jshort low, jshort high) {
    return static_cast<int>(static_cast<unsigned>(high) << 16 | static_cast<unsigned short>(low));
}

// A carrier's while a virtual thread runs there.
ThreadInfo* getNativeThread() {
    ThreadInfo* const known = getNativeThreadInfo();
    if (known != nullptr) {
        return known;
    }
    ThreadInfo* const info = getStoredThreadInfo(nullptr);
    if (info != nullptr && !info->carrierThread) {
        setNativeThreadInfo(info); // it began before the agent
    }
    return info;
}

// The current thread's state, null if the thread is not traced. Takes no lock.
ThreadInfo* getTracedThread() {
    ThreadInfo* const info = ourVMInitCalled ? getNativeThread() : getThreadInfo();
    if (info == nullptr) {
        return nullptr;
    }
    const bool traced = getCalibration() == -1 ? info->calibrationThread.load()
                                               : !info->agentThread && !info->carrierThread;
    return traced ? info : nullptr;
}

bool isTracing() {
    return (ourStatus & CPU_COUNTS_BIT) != 0;
}

// The current thread's stack may be recorded and is known. Caller holds ourLock.
bool isOpen(ThreadInfo* info) {
    return isTracing() && canEnter(info) && info->traced.currentFrame != TracedStack::NO_FRAME;
}

// A call that the thread has not made before from here, or one of a thread of which little is
// known.
void enterUnknown(JNIEnv* env, ThreadInfo* info, int method, long now) {
    LockHolder lock(ourLock, "Instrumentation:679");
    if (!isTracing() || !canEnter(info)) {
        return;
    }
    TracedStack& traced = info->traced;
    const int parent = traced.currentFrame;
    if (parent == TracedStack::NO_FRAME) {
        rebuildStackTrace(env, info);
    } else {
        openCall(info, ourFrameStorage.getChild(parent, method), method, now, traced.callCounter++);
    }
    const int frame = traced.currentFrame;
    Logger::assertNotEquals(frame, 0, VDK_HERE);
    CPUProfilingRecord* const record = info->getCPUProfilingRecord(frame, true);
    record->count++;
    record->stamp = ourDB->currentStamp;
    if (parent != TracedStack::NO_FRAME) {
        learnCall(info, parent, method, frame);
    }
    traced.fastPath.open();
}

void enterCall(JNIEnv* env, ThreadInfo* info, int method, uintptr_t place) {
    const int flags = getMethodFlags(method);
    const bool filtered = (flags & METHOD_FILTERED) != 0;
    const bool wall = (flags & METHOD_WALL_TIME) != 0;
    ZVector<OpenCall>& markers = info->traced.ownMarkers();
    if (isSuspiciousEntry(info, method, place)) {
        LockHolder lock(ourLock);
        if (isOpen(info)) {
            followAfterAlarm(env, info, method, place);
        }
    }
    const bool collapses = filtered && !markers.isEmpty() && markers.peek().filtered;
    markers.push({method, filtered, wall, place});
    if (collapses) {
        return;
    }
    // Reading a clock costs as much as the rest, so it is not done under a lock.
    const long now = getCurrentThreadTimeNs(wall);
    if (ourVMDeathCalled || !info->traced.enterKnown(method, now)) {
        enterUnknown(env, info, method, now);
    }
}

// Calls end without an exit where an exception leaves them and no handler tells of it.
void closeEndedCalls(JNIEnv* env, ThreadInfo* info, int method, uintptr_t place) {
    const bool another = info->traced.markers.peek().method != method;
    if (!another && !isSuspiciousExit(info, place)) {
        return;
    }
    LockHolder lock(ourLock);
    if (!isOpen(info)) {
        return;
    }
    if (another) {
        unwindTo(env, info, findActivation(info, method, 0));
    } else {
        followAfterAlarm(env, info, NO_METHOD, place);
    }
}

void leaveUnknown(JNIEnv* env, ThreadInfo* info, const OpenCall& call, long now) {
    LockHolder lock(ourLock, "Instrumentation:755");
    if (!isOpen(info)) {
        return;
    }
    TracedStack& traced = info->traced;
    const int frame = traced.currentFrame;
    if (ourFrameStorage.getMethodIndex(frame) != call.method) {
        dropStackTrace(info, true);
        return;
    }
    closeCall(info, now, call.wall, PLACE_EXIT);
    traced.currentFrame = ourFrameStorage.getParent(frame);
    learnCall(info, traced.currentFrame, call.method, frame);
    if (traced.markers.isEmpty() && traced.watch.cut) {
        followRealStack(env, info, call.method);
    }
    traced.fastPath.open();
}

void exitCall(JNIEnv* env, ThreadInfo* info, int method, uintptr_t place) {
    ZVector<OpenCall>& markers = info->traced.ownMarkers();
    if (markers.isEmpty()) {
        return;
    }
    closeEndedCalls(env, info, method, place);
    if (markers.isEmpty() || markers.peek().method != method) {
        return;
    }
    const OpenCall call = markers.pop();
    if (call.filtered && !markers.isEmpty() && markers.peek().filtered) {
        return;
    }
    const long now = getCurrentThreadTimeNs(call.wall);
    const bool isStackRead = markers.isEmpty() && info->traced.watch.cut;
    if (isStackRead || ourVMDeathCalled || !info->traced.leaveKnown(method, now, call.wall)) {
        leaveUnknown(env, info, call, now);
    }
}

// At the head of a handler: what its activation called has ended.
void catchCall(JNIEnv* env, ThreadInfo* info, int method, uintptr_t place) {
    J2EEHelper::unwind(env);
    const ZVector<OpenCall>& markers = info->traced.ownMarkers();
    const int depth = findActivation(info, method, place);
    if (depth > 0 && depth == markers.getSize()) {
        return;
    }
    LockHolder lock(ourLock);
    if (!isTracing() || !canEnter(info)) {
        return;
    }
    const int frame = info->traced.currentFrame;
    unwindTo(env, info, depth);
    if (depth == 0) {
        rememberCatcher(info, method, place);
    }
    if (info->traced.currentFrame != frame) {
        // It cost about as much as a call, which nobody must be charged with.
        info->traced.callCounter++;
    }
}

// What the inserted calls do, on a thread that is traced: with all of its open calls at hand, and
// behind it Java code may keep some again.
template <typename Step>
void comeIn(JNIEnv* env, jshort low, jshort high, uintptr_t place, Step&& step) {
    ThreadInfo* const info = getTracedThread();
    if (info != nullptr) {
        info->traced.takeKeptCalls();
        step(env, info, joinMethodId(low, high), place);
        info->traced.letCallsBeKept(env);
    }
}

// A handler that carries no call caught; only where the JVM sends exception events.
void caughtElsewhere(JNIEnv* env, jmethodID handler) {
    ThreadInfo* const info = isTracing() ? getTracedThread() : nullptr;
    if (info == nullptr) {
        return;
    }
    info->traced.takeKeptCalls();
    LockHolder lock(ourLock, "JVMTI_Agent:428");
    if (isTracing() && canEnter(info) &&
        (getMethodFlags(getMethodByID(env, handler)) & METHOD_INSTRUMENTED) == 0) {
        followRealStack(env, info, NO_METHOD);
    }
}

} // namespace

bool canEnter(ThreadInfo* info) {
    if (ourVMDeathCalled) {
        if (info != nullptr && info->traced.currentFrame != TracedStack::NO_FRAME) {
            dropStackTrace(info, true);
        }
        return false;
    }
    return ourVMInitCalled;
}

void JNICALL exception_catch(jvmtiEnv*, JNIEnv* env, jthread, jmethodID method, jlocation,
                             jobject exception) {
    handleEvent(env, VDK_HERE, [&] {
        caughtElsewhere(env, method);
        J2EEHelper::unwind(env);
        Exceptions::onCatch(env, exception);
    });
}

// The place of the native frame: callees of a method come to lie below it.
#define VDK_PLACE reinterpret_cast<uintptr_t>(__builtin_frame_address(0))

void JNICALL VDK_CALLBACK_NATIVE(vdkMethodEntry0)(JNIEnv* env, jclass, jshort low, jshort high) {
    const uintptr_t place = VDK_PLACE;
    runGuarded(VDK_HERE, [&] { comeIn(env, low, high, place, enterCall); });
}

void JNICALL VDK_CALLBACK_NATIVE(vdkMethodExit0)(JNIEnv* env, jclass, jshort low, jshort high) {
    const uintptr_t place = VDK_PLACE;
    runGuarded(VDK_HERE, [&] { comeIn(env, low, high, place, exitCall); });
}

void JNICALL VDK_CALLBACK_NATIVE(vdkMethodCatch0)(JNIEnv* env, jclass, jshort low, jshort high) {
    const uintptr_t place = VDK_PLACE;
    runGuarded(VDK_HERE, [&] { comeIn(env, low, high, place, catchCall); });
}
