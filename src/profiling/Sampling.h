#pragma once

#include <jvmti.h>

class AllStacks;
class ThreadInfo;

// Sampling: one agent thread wakes at a fixed period, takes all stacks in one JVMTI call and
// charges each thread's CPU time since its last sample to every frame of its stack. The same walk
// serves the thread states of telemetry. All table updates happen under ourLock; the wait happens
// outside it.

// Sampling, not tracing, is what runs.
bool isSamplingOn();
// Whether a difference of two readings of a thread's clock can be true and is worth a charge.
bool isSampledTime(long cpuNs);

// Body of the thread "VDKAgent-CPUSampler". Never returns.
void JNICALL sampler_thread_entry(jvmtiEnv* jvmti, JNIEnv* env, void*);

// Charges one sample: the thread's CPU time since its last one, or from a wall-time frame upward
// the elapsed time wallDeltaNs if that is more. Caller holds ourLock.
void doThreadSample(ThreadInfo* info, int frame, long wallDeltaNs);
// The same with the thread's CPU clock already read, in nanoseconds.
void chargeThreadSample(ThreadInfo* info, int frame, long wallDeltaNs, long cpuTimeNs);

// Appends a row to threadstate. Caller holds ourLock.
void doThreadStateSample(ThreadInfo* info, int frame, int jvmtiState);

// Appends a threadstate row for every live thread but the agent's own. *startIndex is the first
// one, *count their number, -1 if stacks is null. Caller holds ourLock, and took the stacks before.
void sampleThreadStatesJVMTI(JNIEnv* env, const AllStacks* stacks, int* startIndex, int* count);
