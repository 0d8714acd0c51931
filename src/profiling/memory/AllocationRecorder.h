#pragma once

#include "core/ground/ZString.h"

#include <jni.h>

// AllocationRecorder: where objects come from and which of them are alive. Every new object reaches
// vdkInitImpl, from inserted calls, from the JNI functions that create objects and from the JVM's
// own event; sampled recording hears of a few from the JVM alone. A recorded object adds to the
// allocinfo row of its thread and frame and carries a row of allocator in its tag
// (ObjectEnumerator) until it ends.

// What the exact mode records: every object of sizeLimit bytes and more, if enabled, and of the
// others every n-th, if enabled, counted over all threads.
struct AllocationSettings {
    bool recordEachEnabled;
    int recordEach;
    bool sizeLimitEnabled;
    int sizeLimit; // bytes
    // The allocated class is the leaf of the recorded stack, so that garbage is told by class.
    bool perClassGarbage;
};

// Written with recording off, under ourLock.
extern AllocationSettings ourAllocationRecordingSettings;

// Reports a new object. frameHint is the frame index that an earlier call of the same invocation
// gave back, -1 if none; the result is the hint for the next one. With recording off it costs one
// test and takes no lock.
int vdkInitImpl(JNIEnv* env, jobject object, int frameHint);

// Starts the exact mode. Empty or the reason why not. Not to be called with ourLock held.
ZString startAllocationRecording(JNIEnv* env, const AllocationSettings& settings);
// Starts the sampled mode, which needs no rewritten class: the JVM reports about one object in
// `intervalBytes` allocated bytes. Empty or the reason why not. Not to be called with ourLock held.
ZString startSampledAllocationRecording(JNIEnv* env, int intervalBytes, bool perClassGarbage);
// Stops either mode. Live objects keep their tags.
void stopAllocationRecording(JNIEnv* env);
void clearAllocationData(JNIEnv* env);

// For how many objects a sampled one of this size stands: 1 / (1 - e^(-size/interval)), the inverse
// of the chance that a point of a Poisson process with that mean distance hits it.
double sampledWeight(long size, int intervalBytes);

// Enters the handlers of its events. Before the agent is loaded.
void installAllocationRecording();
