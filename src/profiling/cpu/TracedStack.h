#pragma once

#include "core/ground/ZVector.h"
#include "profiling/cpu/OpenCall.h"

#include <atomic>
#include <jni.h>

class ThreadInfo;

// TracedStack: the traced calls of a thread that are open now.
//
// DESCRIPTION
//   An exception ends calls without an exit. Their end shows
//   - at the head of the handler, where its method carries a call there;
//   - at an exit that can't be that of the innermost open call;
//   - at an entry that can't have come from below the innermost open call, and when open calls have
//     doubled in number: all that remains where the handler's class carries no calls.
//   What has ended is charged with the time up to then; nothing is counted twice.
// IMPLEMENTATION
//   Mostly the method that goes on is open only once, and so known. In recursion the place of the
//   handler's call on the stack tells which activation it is, once a walk over the JVM's stack has
//   shown how far it lies from the entry's. Where that does not tell, the JVM's stack is walked.
//   A callee's entry call lies below its caller's, or beside it where the JIT has put both into one
//   frame. The JIT may also move a frame, so an impossible place is only a reason to look; looks
//   that were in vain become rarer.

// The thread itself changes markers and watch, without a lock; everything else is guarded by
// ourLock.
struct TracedStack {
    static constexpr int NO_FRAME = -1;

    // One element a frame: entry times, values of callCounter at entry, and the time that was
    // charged to the calls made from there so far.
    ZVector<long> startTimes;
    ZVector<long> startCounts;
    ZVector<long> calleeTimes;
    long callCounter = 0;        // calls traced in this thread
    int currentFrame = NO_FRAME; // the innermost one, NO_FRAME while it is not known
    // All calls, filtered ones without a frame too. Others than the thread only ask it to forget.
    ZVector<OpenCall> markers{64};
    StackWatch watch;
    std::atomic<bool> markersForgotten{false};

    // The markers, for the thread itself.
    ZVector<OpenCall>& ownMarkers() {
        if (markersForgotten) {
            markersForgotten = false;
            markers.clear();
        }
        return markers;
    }
    void forgetOpenCalls() {
        startTimes.clear();
        startCounts.clear();
        calleeTimes.clear();
    }
    // Nothing is known of the thread any more.
    void forget() {
        currentFrame = NO_FRAME;
        forgetOpenCalls();
        markersForgotten = true;
    }
};

// All with ourLock held, except where told otherwise.

// Closes all open frames of a thread, as if they returned now. currentFrame stays.
void resetStackTrace(ThreadInfo* info, bool currentThread);
// Opens all frames from currentFrame up again.
void restoreStackTrace(ThreadInfo* info, bool currentThread);
// The same for every live thread.
void resetStackTraceForAllThreads();
void restoreStackTraceForAllThreads();
// Closes the open frames of a thread and forgets its stack.
void dropStackTrace(ThreadInfo* info, bool currentThread);

// Whether the method's time is taken from the clock on the wall. Takes no lock.
bool isWallTime(int method);
// Places of getTimeDeltaNs.
constexpr int PLACE_EXIT = 1;
constexpr int PLACE_RESET_CPU = 2;
constexpr int PLACE_RESET_WALL = 3;

// Opens the frame of a call that begins now.
void openCall(ThreadInfo* info, long now, long count);
// Charges the innermost open frame with its time up to now.
void closeCall(ThreadInfo* info, int frame, long now, bool wall, int place);
// Builds the traced stack of a thread of which nothing is known.
void rebuildStackTrace(JNIEnv* env, ThreadInfo* info);

// For the three below: a call that is on top of the JVM's stack and not of the traced one.
constexpr int NO_METHOD = -1;

// Makes the traced stack of the current thread what the JVM's is, but for a call of `except` on top
// of it. Whether anything open had ended.
bool followRealStack(JNIEnv* env, ThreadInfo* info, int except);
// The same because a place was suspicious: looks in vain become rarer.
void followAfterAlarm(JNIEnv* env, ThreadInfo* info, int except, uintptr_t place);

// Number of open calls up to the activation of the method that goes on at this place, 0 if the
// JVM's stack has to tell. Without a lock, on the thread itself; place 0 if it tells nothing.
int findActivation(ThreadInfo* info, int method, uintptr_t place);
// Closes what is open above that activation; depth is what findActivation gave.
void unwindTo(JNIEnv* env, ThreadInfo* info, int depth);
// The handler of the innermost open call has called from here.
void rememberCatcher(ThreadInfo* info, int method, uintptr_t place);

// Whether a call can't be entered, or left, at this place while the innermost open one is what it
// seems; also whether it is time to look anyway. Without a lock, on the thread itself.
bool isSuspiciousEntry(ThreadInfo* info, int method, uintptr_t place);
bool isSuspiciousExit(ThreadInfo* info, uintptr_t place);
