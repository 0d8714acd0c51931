#pragma once

#include "core/ground/ZMap.h"
#include "core/ground/ZVector.h"
#include "db/DB.h"
#include "profiling/cpu/OpenCall.h"
#include "profiling/threads/StackMemory.h"

#include <jvmti.h>

// ZFrameStorage keeps every stack ever seen as one tree in the table `frame`, so that a whole stack
// is one int. Frame 0 is the root. Frames are never released: the table grows with the number of
// distinct stacks, and a stack seen again costs no memory. Caller holds ourLock in every operation.
class ZFrameStorage {
public:
    ZFrameStorage()
        : childOfMany(INITIAL_CAPACITY), lastOfMany(INITIAL_CAPACITY), vmStartFrame(-1) {}

    // Back to the state after construction, for a new database.
    void reset() {
        vmStartFrame = -1;
        childOfMany.clear();
        lastOfMany.clear();
    }

    int getParent(int frame) { return record(frame)->parent; }
    int getMethodIndex(int frame) { return record(frame)->method; }
    int getFirstChild(int frame) { return record(frame)->firstChild; }
    int getNextSibling(int frame) { return record(frame)->nextSibling; }

    // The child of frame for the method, made if need be. New children go to the end of the list,
    // which is searched linearly as long as it is short; the order is what readers see.
    int getChild(int frame, int method);

    // Frame of the current thread's stack, of which only the 1024 innermost frames are seen. Hidden
    // methods are left out. With markers, which become the stack's traced calls, only those count,
    // and the first of a run of filtered ones stands for the run; cut, then not null, tells whether
    // the stack is deeper. 0 if nothing is left.
    int fillCurrentFrameJVMTI(JNIEnv* env, ZVector<OpenCall>* markers, bool* cut = nullptr);
    // Frame of the current thread's stack without the constructors of this object at its top: where
    // the object comes from.
    int fillCreatorsFrame(JNIEnv* env, jobject object);
    // Frame of a stack from GetAllStackTraces, hidden methods included: readers skip them. With the
    // memory of the thread's last stack only the part that differs from it is looked up; the memory
    // then holds this stack.
    int fillCurrentFrameJVMTIFromStackInfo(JNIEnv* env, const jvmtiStackInfo& stackInfo,
                                           StackMemory* memory = nullptr);

    // The frame or the nearest one above it whose method is not hidden; 0 if there is none.
    int skipHidden(int frame);

    // Stands for objects allocated while the JVM starts; made when first needed.
    int getVMStartFrame();

private:
    static constexpr int INITIAL_CAPACITY = 10;
    // Children that are looked at one by one. A method whose callees come and go with their classes
    // may get any number of them.
    static constexpr int LONGEST_WALK = 64;

    static long keyOf(int parent, int method) { return static_cast<long>(parent) << 32 | method; }
    int fillFrames(JNIEnv* env, const jvmtiFrameInfo* frames, jint from, jint count);
    int getChildOfMany(int frame, int from, int method);
    int appendChild(int frame, int last, int method);

    // Of frames with more children than that: the others by frame and method, and the last one that
    // stands there.
    ZMap<long, int> childOfMany;
    ZMap<int, int> lastOfMany;
    int vmStartFrame; // -1 until needed

    FrameRecord* record(int frame) { return ourDB->frameTable->getRecord(frame, true); }
    int createFrame(int parent, int method);
};

extern ZFrameStorage& ourFrameStorage;

// The calls on the current thread's stack whose methods carry tracing calls, outermost first; only
// the innermost frames count, at most so many, and the result is false if there are more. Caller
// holds ourLock.
bool readTracedCalls(JNIEnv* env, int most, ZVector<OpenCall>& calls);

// Flags of a method row. Needs no lock: the chunk array of the table is reserved, chunks never
// move, and a stale flag is tolerated.
int getMethodFlags(int method);

// The frame of the method that a probe's callback serves: from `frame` up the nearest callback, and
// behind all callbacks there the first frame that is none. Without a callback the parent of
// `frame`; 0 if nothing is left. Caller holds ourLock.
int findInstrumentedMethod(int frame);
