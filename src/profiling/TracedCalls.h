#pragma once

#include <jvmti.h>

class ThreadInfo;

// TracedCalls: the traced stack of each thread. Inserted calls push and pop it; a throw drops it,
// and the next entry builds it anew from the JVM's stack.

// Closes all open frames of a thread, as if they returned now. currentFrame stays. Caller holds
// ourLock.
void resetStackTrace(ThreadInfo* info, bool currentThread);
// Opens all frames from currentFrame up again. Caller holds ourLock.
void restoreStackTrace(ThreadInfo* info, bool currentThread);
// The same for every live thread. Caller holds ourLock.
void resetStackTraceForAllThreads();
void restoreStackTraceForAllThreads();
// Closes the open frames of a thread and forgets its stack. Caller holds ourLock.
void dropStackTrace(ThreadInfo* info, bool currentThread);

// Whether recording may touch the JVM: in the live phase, before VMDeath. Caller holds ourLock; a
// call after VMDeath closes the current thread's frames, so that they are not lost.
bool canEnter(ThreadInfo* info);

// Keeps traced stacks in step with exceptions: a throw may unwind any number of frames without an
// exit call.
void onExceptionThrown();

// JVMTI handlers of Exception and ExceptionCatch.
void JNICALL exception_handler(jvmtiEnv*, JNIEnv* env, jthread thread, jmethodID method,
                               jlocation location, jobject exception, jmethodID catchMethod,
                               jlocation catchLocation);
void JNICALL exception_catch(jvmtiEnv*, JNIEnv* env, jthread thread, jmethodID method,
                             jlocation location, jobject exception);
