#pragma once

#include "core/ground/ZString.h"

#include <jni.h>

// AllocationRecorder: the one door through which every new object reaches allocation recording,
// from inserted calls, from the JNI functions that create objects and from the JVM's own event.

// What is recorded: each so manieth object, those from so many bytes on, or both.
struct AllocationSettings {
    bool recordEachEnabled;
    int recordEach;
    bool sizeLimitEnabled;
    int sizeLimit; // bytes
    bool perClassGarbage;
};

// Why recording can't be started; empty if it runs.
ZString startAllocationRecording(JNIEnv* env, const AllocationSettings& settings);

// Forgets what was recorded, and tells the user. Takes ourLock.
void clearAllocationData(JNIEnv* env);

// Reports a new object. frameHint is the frame index that an earlier call of the same invocation
// gave back, -1 if none; the result is the hint for the next one. With recording off it costs one
// test and takes no lock.
int vdkInitImpl(JNIEnv* env, jobject object, int frameHint);
