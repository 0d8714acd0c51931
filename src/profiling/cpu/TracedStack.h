#pragma once

#include "core/ground/ZVector.h"
#include "core/jvm/KeptCalls.h"
#include "profiling/cpu/CallCache.h"
#include "profiling/cpu/FastPath.h"
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

// The thread itself changes markers and watch, without a lock; everything else is what fastPath and
// ourLock guard. A call that the thread has made before from the same frame begins and ends on the
// fast path; all others, and what else happens to a stack, under ourLock, which then learns them.
// What the thread counts on the fast path comes to its rows when they are read (foldTracedTimes).
struct alignas(64) TracedStack {
    static constexpr int NO_FRAME = -1;

    FastPath fastPath;
    int currentFrame = NO_FRAME; // the innermost one, NO_FRAME while it is not known
    bool hasBadTimes = false;    // a caller may have less time than its callees
    long callCounter = 0;        // calls traced in this thread
    ZVector<OpenFrame> frames;   // outermost first, up to currentFrame
    CallCache cache;
    // All calls, filtered ones without a frame too. Others than the thread only ask it to forget.
    ZVector<OpenCall> markers{64};
    StackWatch watch;
    std::atomic<bool> markersForgotten{false};
    // Where Java code keeps the innermost of the markers meanwhile; null if it keeps none.
    std::atomic<KeptCalls::Run*> kept{nullptr};
    bool isKeptTried = false;

    // The markers, for the thread itself.
    ZVector<OpenCall>& ownMarkers() {
        if (markersForgotten) {
            markersForgotten = false;
            markers.clear();
        }
        return markers;
    }
    // Nothing is known of the thread any more, and what it has counted is lost.
    void forget() {
        fastPath.shut();
        cache.forgetCharges();
        hasBadTimes = false;
        currentFrame = NO_FRAME;
        frames.clear();
        markersForgotten = true;
        KeptCalls::Run* const run = kept;
        if (run != nullptr) {
            run->shut();
        }
    }

    // On the thread itself, whenever it comes in: the markers are whole from then on, until calls
    // may be kept again.
    void takeKeptCalls();
    void letCallsBeKept(JNIEnv* env);

    // On the thread itself, without ourLock: counts a call that begins, or charges the innermost
    // one, which ends. False if that takes ourLock; nothing has happened then.
    bool enterKnown(int method, long now);
    bool leaveKnown(int method, long now, bool wall);

private:
    bool openKnown(int method, long now);
    bool closeKnown(int method, long now, bool wall);
};

// All with ourLock held, except where told otherwise.

// Adds what a thread has counted for itself to its rows. For others than the thread only between a
// reset, which does it too, and a restore.
void foldTracedTimes(ThreadInfo* info);
// The same for one frame; on the thread itself.
void foldTracedTime(ThreadInfo* info, int frame);
// Closes all open frames of a thread, as if they returned now, and has its rows hold all that it
// has counted. currentFrame stays.
void resetStackTrace(ThreadInfo* info, bool currentThread);
// Opens all frames from currentFrame up again. In between the thread waits for ourLock.
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

// Opens the frame of a call that begins now, which becomes the current one.
void openCall(ThreadInfo* info, int frame, int method, long now, long count);
// Charges the innermost open frame with its time up to now. currentFrame stays.
void closeCall(ThreadInfo* info, long now, bool wall, int place);
// A call of this frame may begin without ourLock from now on.
void learnCall(ThreadInfo* info, int parent, int method, int frame);
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
