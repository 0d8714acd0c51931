#pragma once

#include "core/ground/ZString.h"
#include "profiling/cpu/Samplers.h"

#include <jni.h>

class ClassNameFilter;

// Tracing: switching CPU profiling, sampled or traced, on and off, and the arithmetic of traced
// times.

// Cost of a traced call in nanoseconds: 0 not calibrated yet, -1 calibration under way, positive
// measured.
long getCalibration();
void setCalibration(long costNs);

// end - start, less the calibrated cost of the `calls` traced calls in between; never negative.
long getTimeDeltaNs(long end, long start, long calls, int place);

// Starts CPU profiling as a user asked for it, and tells so: why it was refused, empty if it runs.
// A null text comes from its file. The first tracing of a process is calibrated before. Runs Java
// code: not to be called with a lock held.
ZString startCPUProfiling(JNIEnv* env, long mode, const ZString* filters,
                          const ZString* wallTimeSpec, const SamplerChoice& sampler = {});
// How often CPU profiling was started in this process. Caller holds ourLock.
long countCPUStarts();
// Measures what a traced call costs, unless that is known or CPU profiling runs.
void calibrateOnce(JNIEnv* env);
// Starts tracing of nothing but the class that measures what a traced call costs; with another mode
// under way it leaves a Java exception.
void startCalibrating(JNIEnv* env);
// Why a mode can't be started in this process, in the user's words; empty if it can.
ZString refuseCPUProfiling(long mode);

// Stops CPU profiling if it runs; tells in the log if asked to. Takes ourLock.
void stopCPUProfilingImpl(JNIEnv* env, bool log);
// Forgets all CPU and J2EE data. Takes ourLock.
void clearCPUDataImpl(JNIEnv* env, bool log);

// Recordings that need calls in the classes, as bits.
constexpr int RECORDING_TRACES = 1;
constexpr int RECORDING_ALLOCATES = 2;

// What switches the inserted calls on and off. The layer that rewrites classes lies above this one
// and enters its functions before the agent is loaded; without them there is no tracing.
struct TracingSwitch {
    // Ahead of a recording: the classes carry its calls from here on, until giveCalls. Filters: the
    // classes that were there before an attach and that they exclude may go without; null passes
    // all. The default ones let in what was asked for by name. Nothing where classes carry them
    // always. Not to be called with ourLock held.
    void (*takeCalls)(JNIEnv* env, int recording, ZString* filters) = nullptr;
    // Behind its end, or where it did not begin after all.
    void (*giveCalls)(JNIEnv* env, int recording) = nullptr;
    // Makes the class Callback agree with ourStatus. Not to be called with ourLock held.
    void (*redefineCallback)(JNIEnv* env) = nullptr;
    // Rewrites classes that were loaded before an attach; a null filter passes all. Not to be
    // called with ourLock held.
    void (*retransformLoadedClasses)(JNIEnv* env, ClassNameFilter* filter) = nullptr;
    // Puts the calls that count exceptions into the classes, or takes them out: at their creation,
    // and where they are caught. Not to be called with ourLock held, nor by two threads at once.
    void (*switchExceptionCalls)(JNIEnv* env, bool created, bool caught) = nullptr;
};

extern TracingSwitch ourTracingSwitch;

// Takes the calls of a recording that is about to begin, 0 for none, and gives them back unless it
// did. An error in it leaves nothing taken.
class TakenCalls {
public:
    TakenCalls(JNIEnv* javaEnv, int takenFor, ZString* filters);
    ~TakenCalls();
    TakenCalls(const TakenCalls&) = delete;
    TakenCalls& operator=(const TakenCalls&) = delete;
    // It runs; whoever stops it gives them back.
    void keep() { recording = 0; }

private:
    JNIEnv* env;
    int recording;
};
