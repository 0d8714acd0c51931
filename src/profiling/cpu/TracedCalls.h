#pragma once

#include <jvmti.h>

class ThreadInfo;

// TracedCalls: what the inserted calls do. They push and pop the traced stack of their thread; the
// first one of a thread builds it from the JVM's.

// Whether recording may touch the JVM: in the live phase, before VMDeath. Caller holds ourLock; a
// call after VMDeath closes the current thread's frames, so that they are not lost.
bool canEnter(ThreadInfo* info);

// JVMTI handler of ExceptionCatch.
void JNICALL exception_catch(jvmtiEnv*, JNIEnv* env, jthread thread, jmethodID method,
                             jlocation location, jobject exception);
