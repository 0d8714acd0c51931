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
#include "profiling/threads/MethodLookup.h"
#include "profiling/threads/ThreadInfo.h"
#include "profiling/threads/ZFrameStorage.h"

namespace {

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

void enterCall(JNIEnv* env, int method, uintptr_t place) {
    ThreadInfo* const info = getTracedThread();
    if (info == nullptr) {
        return;
    }
    const bool filtered = (getMethodFlags(method) & METHOD_FILTERED) != 0;
    ZVector<OpenCall>& markers = info->traced.ownMarkers();
    if (isSuspiciousEntry(info, method, place)) {
        LockHolder lock(ourLock);
        if (isOpen(info)) {
            followAfterAlarm(env, info, method, place);
        }
    }
    const bool collapses = filtered && !markers.isEmpty() && markers.peek().filtered;
    markers.push({method, filtered, place});
    if (collapses) {
        return;
    }
    // Reading a clock costs as much as the rest, so it is not done under the lock.
    const long now = getCurrentThreadTimeNsByMethod(method);
    LockHolder lock(ourLock, "Instrumentation:679");
    if (!isTracing() || !canEnter(info)) {
        return;
    }
    if (info->traced.currentFrame == TracedStack::NO_FRAME) {
        rebuildStackTrace(env, info);
    } else {
        openCall(info, now, info->traced.callCounter++);
        info->traced.currentFrame = ourFrameStorage.getChild(info->traced.currentFrame, method);
    }
    const int frame = info->traced.currentFrame;
    Logger::assertNotEquals(frame, 0, VDK_HERE);
    CPUProfilingRecord* const record = info->getCPUProfilingRecord(frame, true);
    record->count++;
    record->stamp = ourDB->currentStamp;
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

void exitCall(JNIEnv* env, int method, uintptr_t place) {
    ThreadInfo* const info = getTracedThread();
    if (info == nullptr) {
        return;
    }
    ZVector<OpenCall>& markers = info->traced.ownMarkers();
    if (markers.isEmpty()) {
        return;
    }
    closeEndedCalls(env, info, method, place);
    if (markers.isEmpty() || markers.peek().method != method) {
        return;
    }
    const bool filtered = markers.pop().filtered;
    if (filtered && !markers.isEmpty() && markers.peek().filtered) {
        return;
    }
    const long now = getCurrentThreadTimeNsByMethod(method);
    LockHolder lock(ourLock, "Instrumentation:755");
    if (!isOpen(info)) {
        return;
    }
    const int frame = info->traced.currentFrame;
    if (ourFrameStorage.getMethodIndex(frame) != method) {
        dropStackTrace(info, true);
        return;
    }
    info->traced.currentFrame = ourFrameStorage.getParent(frame);
    closeCall(info, frame, now, isWallTime(method), PLACE_EXIT);
    if (markers.isEmpty() && info->traced.watch.cut) {
        followRealStack(env, info, method);
    }
}

// At the head of a handler: what its activation called has ended.
void catchCall(JNIEnv* env, int method, uintptr_t place) {
    ThreadInfo* const info = getTracedThread();
    if (info == nullptr) {
        return;
    }
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

// A handler that carries no call caught; only where the JVM sends exception events.
void caughtElsewhere(JNIEnv* env, jmethodID handler) {
    ThreadInfo* const info = isTracing() ? getTracedThread() : nullptr;
    if (info == nullptr) {
        return;
    }
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
    runGuarded(VDK_HERE, [&] { enterCall(env, joinMethodId(low, high), place); });
}

void JNICALL VDK_CALLBACK_NATIVE(vdkMethodExit0)(JNIEnv* env, jclass, jshort low, jshort high) {
    const uintptr_t place = VDK_PLACE;
    runGuarded(VDK_HERE, [&] { exitCall(env, joinMethodId(low, high), place); });
}

void JNICALL VDK_CALLBACK_NATIVE(vdkMethodCatch0)(JNIEnv* env, jclass, jshort low, jshort high) {
    const uintptr_t place = VDK_PLACE;
    runGuarded(VDK_HERE, [&] { catchCall(env, joinMethodId(low, high), place); });
}
