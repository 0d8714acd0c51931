#pragma once

#include "core/ground/ZString.h"

#include <jni.h>

// Before the hook is on: learns what the weaving of the probes that the options name asks for.
void prepareProbes(JNIEnv* env);

// The hook sees a class that is being loaded. Caller holds ourLock.
void noteLoadedWhileProbesChange(const ZString& name);

// Loaded classes follow the list of probes: those that an added, replaced or removed probe concerns
// are retransformed, so that the load hook weaves them with the list as it is then. No lock is
// held over it, and Java code runs: several threads may change probes at once, each sees to the
// classes of its own changes. Not to be called with ourLock held.
//
// reason: for the log.
void retransformClassesForChangedProbes(JNIEnv* env, const char* reason);
