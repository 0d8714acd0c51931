#pragma once

#include "platform/ThreadTimers.h"
#include "profiling/cpu/CompiledCode.h"
#include "profiling/cpu/InterruptedStack.h"

// StackWalk: the stack of a thread that was interrupted in compiled code of Java, by what the JVM
// tells of that code and how it lays out frames of its interpreter. It touches less memory than
// AsyncGetCallTrace, and what is not in the caches is most of what a sample costs. It knows each
// frame up to the begin of the thread, or gives up, and the JVM's function is asked.
//
// Some samples are walked both ways. Where the two often differ, the JVM lays out its frames
// differently, and the walk is not used from then on.
class StackWalk {
public:
    // Finds what it needs, with nothing learned yet. False where it can't be used. Not for
    // handlers.
    static bool prepare();
    // No walk from here on. Forgets what it learned; no handler may be at work.
    static void stop();

    // The rest is for handlers: no lock, no allocation.

    // With what the JVM notes of the thread (FrameAnchor), and which is good outside Java's code.
    StackWalk(const ThreadTimers::Registers& interrupted, const ThreadTimers::Registers& jvmNote,
              const StackBounds& stackBounds);
    // Writes frames and their number. False if it gave up; frames are then of no use.
    bool go(CallFrame* frames, int most);
    int getCount() const { return count; }
    // It gave up at a frame of the interpreter whose method is to be learned.
    bool isMethodUnknown() const { return isUnknown; }

    // Whether the JVM is to walk this one, too. Not those that begin outside the code of a method:
    // of the frame that called a stub its function takes the scope behind the call.
    bool isToBeCompared() const;
    // Whether the JVM found the same, which is counted. A walk may end earlier, at the begin of a
    // virtual thread.
    bool isEqual(const CallFrame* own, const CallFrame* theirs, int theirCount) const;

    // Walks, those that were compared, and those of them that were not equal.
    struct Counts {
        long walks;
        long compared;
        long unequal;
        bool isRefused;
    };
    static Counts getCounts();

private:
    enum Step { UP, END, LOST };
    bool startAtTop();
    bool goTo(const ThreadTimers::Registers& last);
    Step stepUp();
    Step stepInterpreted();
    Step stepEntry();
    Step stepCompiled();
    Step leaveStub(int words);
    Step stepBehind(const CompiledCode::Frame& found);
    int findStubsWords() const;
    int countPushed(int words) const;
    static bool isReturn(uintptr_t address);
    static bool isInterpreter(uintptr_t address);
    bool isOnStack(uintptr_t address, int words) const;
    bool leave(uintptr_t above, uintptr_t newPc, uintptr_t newFrame);

    const StackBounds bounds;
    const ThreadTimers::Registers note;
    uintptr_t pc;
    uintptr_t stack;            // all below is left behind
    uintptr_t frame;            // the frame pointer
    bool isBelowNative = false; // the note led here
    bool isLeafCall = false;    // pc is behind a call of a stub
    bool isUnknown = false;
    bool isFromCode = false; // began in the code of a method
    bool isMounted = false;  // ended at the begin of a virtual thread
    CallFrame* frames = nullptr;
    int most = 0;
    int count = 0;
};
