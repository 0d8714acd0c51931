#include "profiling/cpu/InterruptedStack.h"

#include "platform/Platform.h"
#include "platform/ThreadTimers.h"
#include "profiling/cpu/CompiledCode.h"
#include "profiling/cpu/FrameAnchor.h"
#include "profiling/cpu/JvmLayout.h"
#include "profiling/cpu/RawMemory.h"
#include "profiling/cpu/StackWalk.h"

#include <cstdlib>
#include <cstring>

std::atomic<int> InterruptedStacks::ourStates[PLACES];
InterruptedStack InterruptedStacks::ourStacks[PLACES];

namespace {

using RawMemory::wordAt;
using Registers = ThreadTimers::Registers;

struct CallTrace {
    JNIEnv* env;
    jint frameCount;
    CallFrame* frames;
};

// Codes of AsyncGetCallTrace for a thread that was in Java code.
const int UNKNOWN_JAVA = -5;
const int NOT_WALKABLE_JAVA = -6;
// Ours.
const int NO_ROOM = -100;
const int NO_ENVIRONMENT = -101;

// The JVM's walk takes a few of them.
const size_t LEAST_ROOM = 24 * 1024;
const jint UNKNOWN_POSITION = -1;
const int MOST_LEAF_FRAMES = 64;
// The return address of a frame that is being entered or left is at the stack pointer or near it.
const int WORDS_AT_TOP = 5;
const int MOST_HOPS = 8;
const uintptr_t WORDS_OF_STUB = 8;

void (*ourAsyncGetCallTrace)(CallTrace*, jint, void*) = nullptr;
std::atomic<long> ourSequence{0};
std::atomic<long> ourLost{0};
const long NS_PER_CLASS = 500;
const int TIME_CLASSES = 200; // the last one holds all longer times
std::atomic<long> ourHandlerTimes[TIME_CLASSES];

// The JVM's walk of one sample: tries one place after the other until it finds its way.
class JvmWalk {
public:
    JvmWalk(void* interrupted, const StackBounds& stackBounds, JNIEnv* jniEnv,
            InterruptedStack* into)
        : context(interrupted), bounds(stackBounds), env(jniEnv), stack(into),
          found(ThreadTimers::read(interrupted)) {}

    void go() {
        stack->code = callFromTop(0);
        stack->frameCount = stack->code;
        if (stack->code > 0) {
            return;
        }
        const int leafFrames = readLeaf();
        stack->frameCount = leafFrames;
        if (stack->code != UNKNOWN_JAVA && stack->code != NOT_WALKABLE_JAVA) {
            return;
        }
        if (isOnStack(found.stack, WORDS_AT_TOP) && recover(leafFrames)) {
            stack->code = stack->frameCount;
        }
    }

    // What the JVM says of the whole stack; frames go behind the first ones.
    // Time has passed in the instruction that was done last. The next one, where the thread was
    // interrupted, often is another inlined method's: what is slow has an end that is waited for.
    int callFromTop(int behind) {
        if (CompiledCode::isWithinMethod(found.pc)) {
            const int count = callFrom({found.pc - 1, found.stack, found.frame}, behind);
            if (count != UNKNOWN_JAVA && count != NOT_WALKABLE_JAVA) {
                return count;
            }
        }
        return callFrom(found, behind);
    }

private:
    // What the JVM says of the stack with these registers; frames go behind the first ones. Of the
    // innermost frame it takes the scope that ends behind its pc.
    int callFrom(const Registers& registers, int behind) {
        ThreadTimers::write(context, registers);
        CallTrace trace = {env, 0, stack->frames + behind};
        ourAsyncGetCallTrace(&trace, InterruptedStack::MOST_FRAMES - behind, context);
        ThreadTimers::write(context, found);
        return trace.frameCount;
    }

    int readLeaf() {
        jmethodID methods[MOST_LEAF_FRAMES];
        const int count = CompiledCode::methodsAt(found.pc, methods, MOST_LEAF_FRAMES);
        for (int i = 0; i < count; i++) {
            stack->frames[i] = {UNKNOWN_POSITION, methods[i]};
        }
        return count;
    }

    bool isOnStack(uintptr_t address, int words) const {
        return address % sizeof(uintptr_t) == 0 && address >= bounds.low && address < bounds.high &&
               bounds.high - address >= static_cast<uintptr_t>(words) * sizeof(uintptr_t);
    }

    bool tryCaller(const Registers& caller, int leafFrames) {
        // The scope that ends where the call returns to is the caller's; the next one may be that
        // of another inlined method.
        const Registers atCall = {caller.pc - 1, caller.stack, caller.frame};
        const int count = CompiledCode::mayBeCode(caller.pc) ? callFrom(atCall, leafFrames) : 0;
        stack->frameCount = leafFrames + (count > 0 ? count : 0);
        return count > 0;
    }

    bool recover(int leafFrames) {
        const FrameAnchor anchor(env);
        return tryTop(leafFrames) ||
               (anchor.getStack() > found.stack && tryAbove(anchor.getStack(), leafFrames)) ||
               tryFramePointer(leafFrames);
    }

    // As if a frame of some words ended above this place: that of a stub, which the JVM does not
    // walk, with the frame pointer below the return address.
    bool tryAbove(uintptr_t from, int leafFrames) {
        for (uintptr_t i = 1; i <= WORDS_OF_STUB; i++) {
            const uintptr_t place = from + i * sizeof(uintptr_t);
            if (isOnStack(place, 1) && tryCaller({wordAt(place), place + sizeof(uintptr_t),
                                                  wordAt(place - sizeof(uintptr_t))},
                                                 leafFrames)) {
                return true;
            }
        }
        return false;
    }

    // As if the frame had just been entered, or were about to be left.
    bool tryTop(int leafFrames) {
        for (uintptr_t i = 0; i < WORDS_AT_TOP; i++) {
            const uintptr_t place = found.stack + i * sizeof(uintptr_t);
            if (tryCaller({wordAt(place), place + sizeof(uintptr_t), found.frame}, leafFrames)) {
                return true;
            }
        }
        return false;
    }

    // Along the frame pointers, which native code called without a change of state may have.
    bool tryFramePointer(int leafFrames) {
        uintptr_t frame = found.frame;
        uintptr_t above = found.stack;
        for (int i = 0; i < MOST_HOPS && frame >= above && isOnStack(frame, 2); i++) {
            above = frame + 2 * sizeof(uintptr_t);
            const Registers caller = {wordAt(frame + sizeof(uintptr_t)), above, wordAt(frame)};
            if (tryCaller(caller, leafFrames) ||
                (CompiledCode::mayBeCode(caller.pc) && tryAbove(above, leafFrames))) {
                return true;
            }
            frame = caller.frame;
        }
        return false;
    }

    void* context;
    StackBounds bounds;
    JNIEnv* env;
    InterruptedStack* stack;
    const Registers found;
};

// Where the JVM has found other frames, which stand behind, they count.
void compare(const StackWalk& own, int count, InterruptedStack* stack) {
    const CallFrame* const theirs = stack->frames + stack->frameCount;
    if (count > 0 && !own.isEqual(stack->frames, theirs, count)) {
        memmove(stack->frames, theirs, static_cast<size_t>(count) * sizeof(CallFrame));
        stack->code = stack->frameCount = count;
    }
}

} // namespace

const char* InterruptedStacks::prepare() {
    if (ourAsyncGetCallTrace == nullptr) {
        void* const function = JvmLayout::findExported("AsyncGetCallTrace");
        if (function == nullptr) {
            return "the JVM has no function AsyncGetCallTrace";
        }
        memcpy(&ourAsyncGetCallTrace, &function, sizeof(function));
    }
    if (ourStacks[0].frames != nullptr) {
        return nullptr;
    }
    // Most of it is never touched: places are taken from the first one on.
    auto* const frames = static_cast<CallFrame*>(
        calloc(static_cast<size_t>(PLACES) * InterruptedStack::MOST_FRAMES, sizeof(CallFrame)));
    if (frames == nullptr) {
        return "there is no memory for samples";
    }
    for (int i = 0; i < PLACES; i++) {
        ourStacks[i].frames = frames + static_cast<ptrdiff_t>(i) * InterruptedStack::MOST_FRAMES;
    }
    return nullptr;
}

InterruptedStack* InterruptedStacks::claim() {
    for (int i = 0; i < PLACES; i++) {
        int expected = FREE;
        if (ourStates[i].load(std::memory_order_relaxed) == FREE &&
            ourStates[i].compare_exchange_strong(expected, WRITING)) {
            return &ourStacks[i];
        }
    }
    ourLost++;
    return nullptr;
}

void InterruptedStacks::walk(void* context, const StackBounds& bounds, JNIEnv* env,
                             InterruptedStack* stack) {
    const Registers found = ThreadTimers::read(context);
    stack->place = found.stack;
    stack->frameCount = 0;
    stack->isMethodUnknown = false;
    if (env == nullptr) {
        stack->code = NO_ENVIRONMENT;
        return;
    }
    StackWalk own(found, FrameAnchor::read(env), bounds);
    const bool isWalked = own.go(stack->frames, InterruptedStack::MOST_FRAMES);
    const bool isRoom = ThreadTimers::roomOnStack(context) >= LEAST_ROOM;
    if (isWalked) {
        stack->code = stack->frameCount = own.getCount();
        if (isRoom && own.isToBeCompared()) {
            compare(own, JvmWalk(context, bounds, env, stack).callFromTop(stack->code), stack);
        }
    } else if (isRoom) {
        stack->isMethodUnknown = own.isMethodUnknown();
        JvmWalk(context, bounds, env, stack).go();
    } else {
        stack->code = NO_ROOM;
    }
}

void InterruptedStacks::publish(InterruptedStack* stack) {
    stack->sequence = ourSequence++;
    const long tookNs = Platform::currentThreadCPUTimeNs() - stack->cpuTimeNs;
    const long timeClass = tookNs < 0 ? 0 : tookNs / NS_PER_CLASS;
    ourHandlerTimes[timeClass < TIME_CLASSES ? timeClass : TIME_CLASSES - 1]++;
    ourStates[stack - ourStacks] = WRITTEN;
}

void InterruptedStacks::giveBack(InterruptedStack* stack) {
    ourStates[stack - ourStacks] = FREE;
}

long InterruptedStacks::getLost() {
    return ourLost;
}

void InterruptedStacks::getCosts(long* samples, long* handlerNs) {
    *samples = 0;
    for (const std::atomic<long>& count : ourHandlerTimes) {
        *samples += count;
    }
    int timeClass = 0;
    for (long seen = ourHandlerTimes[0]; 2 * seen < *samples; seen += ourHandlerTimes[timeClass]) {
        timeClass++;
    }
    *handlerNs = (timeClass + 1) * NS_PER_CLASS;
}

void InterruptedStacks::forgetCounts() {
    ourLost = 0;
    for (std::atomic<long>& count : ourHandlerTimes) {
        count = 0;
    }
}
