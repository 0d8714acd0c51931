#pragma once

#include <jni.h>

// AllocationRecorder: the one door through which every new object reaches allocation recording,
// from inserted calls, from the JNI functions that create objects and from the JVM's own event.

// Reports a new object. frameHint is the frame index that an earlier call of the same invocation
// gave back, -1 if none; the result is the hint for the next one. With recording off it costs one
// test and takes no lock.
int vdkInitImpl(JNIEnv* env, jobject object, int frameHint);
