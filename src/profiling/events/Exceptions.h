#pragma once

#include "core/ground/ZSet.h"

#include <jvmti.h>

class ThreadInfo;

// Exceptions: how often exceptions were thrown, one row of exception for each thread, class,
// throwing and catching frame. A caught one counts when it is caught. An object that is thrown
// again moves its count to the new row, and keeps the frame that threw it first: its tag in
// ourJVMTI7 remembers where it counts.
//
// Where the JVM sends no exception events, calls that are put into classes on request tell instead:
// one when an exception is created, which stands for the throw, with the stack of the creator; and
// one at each `catch`, which moves the count as a second throw of the object would.
//
// Platform threads of the application only.
class Exceptions {
public:
    // Enters the handler of the event Exception; before the agent is loaded. That of ExceptionCatch
    // belongs to the traced calls, which hand on what they get.
    static void install();
    // Back to the state after the load of the library, for a new database.
    static void reset();

    // Sets or clears the bit of the status, and brings events or inserted calls in step with it.
    // Takes ourLock, which the caller does not hold.
    static void enable(JNIEnv* env, bool isOn);
    // The same for the numbers by class of ExceptionCounts, which do without rows and stacks, and
    // whose inserted call stands in the constructors of Throwable alone.
    static void countByClass(JNIEnv* env, bool isOn);

    // A handler of the current thread has caught it. Takes ourLock if telemetry is on.
    static void onCatch(JNIEnv* env, jobject exception);

    // The rest with ourLock held.

    static void handleException(JNIEnv* env, const ThreadInfo* info, jobject exception,
                                bool willBeCaught);
    static void handleExceptionCatch(JNIEnv* env, const ThreadInfo* info, jobject exception);
    // A thread has ended: what it threw and nobody has caught yet is forgotten.
    static void threadEnds(int trn);
    // Adds the rows of these threads to ourOldestFinishedThreads, and deletes them.
    static void mergeExceptionUsage(ZSet<int>* trns);
    // Empties the table, forgets what is thrown and the tags, and tells readers.
    static void clearExceptions();
};
