#pragma once

#include <jvmti.h>

class ThreadInfo;

// Virtual threads have no ThreadInfo: they come and go by the million. Where one waits, whichever
// carrier it began on, one stand-in for all of them is meant.

// Looks for what the JVM has of virtual threads; before the rest is called.
void findVirtualThreads(JNIEnv* env);

// Whether a thread object is a virtual thread.
bool isVirtualThread(JNIEnv* env, jthread thread);

// Whether any virtual thread may have run: a carrier was seen.
bool areVirtualThreadsInUse();
void noteCarrierThread();

// Number of the current thread in the JVM's own count, if it is virtual; 0 if it is not.
jlong getCurrentVirtualThreadID(JNIEnv* env);

// The row "<Virtual threads>", made when first needed. Caller holds ourLock.
ThreadInfo* getVirtualThreadsInfo();

// For a new database.
void resetVirtualThreads();
