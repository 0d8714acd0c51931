#pragma once

#include <jni.h>

class ClassNameFilter;

// What switches the inserted calls on and off. The layer that rewrites classes lies above this one
// and enters its functions before the agent is loaded; without them there is no tracing.
struct TracingSwitch {
    // Makes the class Callback agree with ourStatus. Not to be called with ourLock held.
    void (*redefineCallback)(JNIEnv* env) = nullptr;
    // Rewrites classes that were loaded before an attach; a null filter passes all. Not to be
    // called with ourLock held.
    void (*retransformLoadedClasses)(JNIEnv* env, ClassNameFilter* filter) = nullptr;
};

extern TracingSwitch ourTracingSwitch;
