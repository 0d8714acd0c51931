#pragma once

#include "core/ground/ZString.h"

#include <jvmti.h>

class ThreadInfo;

// SignalSampling: sampling by timers on the threads' own CPU clocks, which interrupt a thread where
// it runs. The handler writes down the stack (InterruptedStack), the sampler thread fills the rows.
// A sample is charged all that the thread's clock says since the one before, so what is charged is
// what was used. Threads that run nothing cost nothing.
//
// What no sample saw of a thread, at its end or when sampling stops, belongs to the stack of its
// last sample; beyond two periods, and of threads without any, to the frame "[no sample]".
namespace SignalSampling {

// Starts it, with a trial on the current thread. Empty, or why the stack walker has to do. Runs
// Java code. Starts and stops are Samplers' to call, one at a time, without ourLock.
ZString start(JNIEnv* env);
// Takes what is left and gives the signal back. Nothing if it does not run.
void stop(JNIEnv* env);
bool isOn();

// On the sampler thread: waits for samples, at most so long, and charges them.
void takeSamples(JNIEnv* env, long waitMs);
// Charges all that threads have used up to now. Not with ourLock held.
void settle(JNIEnv* env);

// On the thread itself, with ourLock held.
void threadStarts(ThreadInfo* info);
void threadEnds(JNIEnv* env, ThreadInfo* info);

} // namespace SignalSampling
