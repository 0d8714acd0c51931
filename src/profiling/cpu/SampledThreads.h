#pragma once

#include "profiling/cpu/InterruptedStack.h"

#include <atomic>

class ThreadInfo;

// SampledThread: a thread with a timer on its CPU clock. Signals name it by its number; the memory
// is never freed, for a signal may come late, but serves one thread after the other.
struct SampledThread {
    explicit SampledThread(int place) : number(place) {}

    const int number;
    // What the handler reads.
    std::atomic<bool> isRunning{false};
    std::atomic<long> nativeID{0};
    std::atomic<unsigned> generation{0};
    std::atomic<uintptr_t> stackLow{0};
    std::atomic<uintptr_t> stackHigh{0};
    std::atomic<JNIEnv*> environment{nullptr}; // its own; null before its first sample

    // The rest: ourLock.
    int timer = -1;
    ThreadInfo* info = nullptr; // null while it serves none
    int lastFrame = 0;          // of its last sample; 0 before the first
    int lastLine = 0;           // the same, 0 if it is not known
};

namespace SampledThreads {

// The function that timers interrupt threads with.
void onTimer(int number, void* context);
// Blocks until a sample came, at most so long, and never for long.
void awaitSample(long wantedMs);

// All with ourLock held.

// Starts the thread's timer; null if the system refuses, which is counted.
SampledThread* add(ThreadInfo* info, long nativeID, long periodNs);
// Ends it; samples that were not taken out yet are void from here on.
void remove(SampledThread* sampled);
// Threads without a timer because the system refused one.
int getRefused();
void forgetRefused();
// The thread of a sample; null if that has ended since.
SampledThread* of(const InterruptedStack& stack);
// Looks up the stack of one whose bounds are not known, by an address in it.
void findBounds(SampledThread* sampled, uintptr_t address);

} // namespace SampledThreads
