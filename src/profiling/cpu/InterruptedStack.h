#pragma once

#include <atomic>
#include <jvmti.h>
#include <stdint.h>

// InterruptedStack: the stack of a thread as a signal found it, written by the handler into one of
// a bounded number of places, read and given back by who fills the tables.

// One frame, as AsyncGetCallTrace writes it.
struct CallFrame {
    jint position; // in the bytecode; negative where there is none or nobody knows
    jmethodID method;
};

struct InterruptedStack {
    // Of deeper stacks only the innermost frames are seen.
    static const int MOST_FRAMES = 1024;

    int slot;            // of the thread
    unsigned generation; // of the slot's use
    long sequence;       // order of the samples
    long cpuTimeNs;      // what the thread's clock said
    uintptr_t place;     // the stack pointer
    // Frames from the innermost one on. Where it is not positive the JVM could not walk the stack,
    // and says why by a code of its own; the frames are then those of the leaf alone, if it is
    // known.
    int code;
    int frameCount;
    CallFrame* frames;
    bool isMethodUnknown; // one of the frames is a method of the interpreter to be learned
};

// Bounds of the stack of the thread whose signal is handled; both 0 if they are not known.
struct StackBounds {
    uintptr_t low;
    uintptr_t high;
};

namespace InterruptedStacks {

// Finds the JVM's function and makes the places. Null, or why that can't be done.
const char* prepare();

// For handlers: no lock, no allocation.

// A place to write to; null if all are taken, which is counted.
InterruptedStack* claim();
// Walks the current thread's stack from where it was interrupted. The environment is null if the
// thread has none.
void walk(void* context, const StackBounds& bounds, JNIEnv* env, InterruptedStack* stack);
// Adds what the thread used since its clock was read to what handlers took.
void publish(InterruptedStack* stack);

// For readers.

// Calls visit(stack) for those written; where it returns true the stack is the caller's from then
// on, until it gives the place back.
template <typename Visitor>
void takeOut(Visitor&& visit);
void giveBack(InterruptedStack* stack);
// Samples written, and a time, a multiple of 500 ns up to 100 us, that at least half of their
// handlers took at most: the CPU clocks of a virtual machine count now and then what others took
// from it.
void getCosts(long* samples, long* handlerNs);
// Samples that found no place.
long getLost();
// Of lost ones and of costs.
void forgetCounts();

// Implementation

const int PLACES = 256;
enum PlaceState { FREE, WRITING, WRITTEN, TAKEN };
extern std::atomic<int> ourStates[PLACES];
extern InterruptedStack ourStacks[PLACES];

template <typename Visitor>
void takeOut(Visitor&& visit) {
    for (int i = 0; i < PLACES; i++) {
        int expected = WRITTEN;
        // Taken while it is looked at: two readers may be at work.
        if (ourStates[i].load() == WRITTEN &&
            ourStates[i].compare_exchange_strong(expected, TAKEN) && !visit(&ourStacks[i])) {
            ourStates[i] = WRITTEN;
        }
    }
}

} // namespace InterruptedStacks
