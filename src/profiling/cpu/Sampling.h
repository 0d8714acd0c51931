#pragma once

#include "core/ground/ZMap.h"
#include "profiling/threads/StackMemory.h"

#include <jvmti.h>

class AllStacks;
class ThreadInfo;
struct SampledThread;

// Sampling: one agent thread wakes at a fixed period, takes the stacks of all threads that ran
// since the last time in one JVMTI call and charges each thread's CPU time since its last sample to
// every frame of its stack. A walk over all stacks serves the thread states of telemetry. All table
// updates happen under ourLock; the wait happens outside it.

// Where a thread stood when the JVM was asked for its stack.
struct ThreadPlace {
    static constexpr int UNKNOWN = -1;

    int frame = UNKNOWN; // 0 without a visible method
    int line = 0;        // of SampledLines
    int state = 0;       // as JVMTI tells it
    long cpuTimeNs = 0;  // what the thread's clock said before
    long lookNs = 0;     // when WallTimeWalk looked last
};

// Rows of SampledLines that a thread has, by frame (high half) and line.
struct LineRows {
    ZMap<long, int> indexes{16};
    ZVector<int> list;
};

// What sampling keeps of a thread. Caller holds ourLock.
struct SampleMemory {
    static constexpr int NO_FRAME = -1;
    static constexpr int NO_ROW = -1;

    long lastCpuTimeNs = 0; // last reading of its clock, 0 before the first
    // A frame whose rows all exist and whose stack has no wall-time method: a sample there that
    // charges nothing needs no walk.
    int idleFrame = NO_FRAME;
    int timesRow = NO_ROW;        // of SampledTimes
    LineRows* lineRows = nullptr; // of SampledLines, which owns it
    StackMemory lastStack;
    SampledThread* timer = nullptr; // of SignalSampling, while it runs
    ThreadPlace place;              // of the stack walker, and of WallTimeWalk

    // The next sample counts as the first: for want of an earlier reading it charges no time.
    void forgetLastSample() {
        lastCpuTimeNs = 0;
        idleFrame = NO_FRAME;
        place = ThreadPlace();
    }
};

// Sampling, not tracing, is what runs.
bool isSamplingOn();
// Whether a difference of two readings of a thread's clock can be true and is worth a charge.
bool isSampledTime(long cpuNs);

// Body of the thread "VDKAgent-CPUSampler". It ends with the stay (AgentThread.h).
void JNICALL sampler_thread_entry(jvmtiEnv* jvmti, JNIEnv* env, void* stay);

// Charges one sample: the thread's CPU time since its last one, or from a wall-time frame upward
// the elapsed time wallDeltaNs if that is more. Caller holds ourLock.
void doThreadSample(ThreadInfo* info, int frame, long wallDeltaNs);
// The same with the thread's CPU clock already read, in nanoseconds, and the frame's line if it is
// known.
void chargeThreadSample(ThreadInfo* info, int frame, long wallDeltaNs, long cpuTimeNs,
                        int line = 0);

// Appends a row to threadstate. Caller holds ourLock.
void doThreadStateSample(ThreadInfo* info, int frame, int jvmtiState);

// Appends a threadstate row for every live thread but the agent's own. *startIndex is the first
// one, *count their number, -1 if stacks is null. Caller holds ourLock, and took the stacks before.
void sampleThreadStatesJVMTI(JNIEnv* env, const AllStacks* stacks, int* startIndex, int* count);
