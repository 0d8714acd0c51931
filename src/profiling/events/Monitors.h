#pragma once

#include "core/ground/ZSet.h"
#include "core/ground/ZString.h"

#include <jvmti.h>

// Monitors: how long threads waited for Java monitors, one row of monitor for each waiter, owner,
// class and stack. A wait lasts from the event that begins it to the event that ends it; time in
// Object.wait() stands in a row whose owner is the waiter. Beside monitors, while they are
// recorded, parked threads.
//
// Virtual threads are one waiter; as owners the JVM does not name them, and the row has none. The
// agent's own threads are not profiled. Questions that the JVM answers by stopping threads, or by
// waiting until none is being mounted, are asked without a lock.
class Monitors {
public:
    // getTimeNs() at the start of the last recording, 0 before the first, and at its end.
    static long ourMonitorRecordingStartNs;
    static long ourMonitorRecordingLastNs;

    // Enters the event handlers; before the agent is loaded.
    static void install();
    // Back to the state after the load of the library, for a new database. Caller holds ourLock or
    // is the only thread.
    static void reset();

    // Both take ourLock, which the caller does not hold. start is false if recording runs already,
    // stop if it does not.
    static bool start(JNIEnv* env);
    static bool stop(JNIEnv* env);
    // The same, telling the user; empty or why it can't be started.
    static ZString startMonitorProfiling(JNIEnv* env);
    static void stopMonitorProfiling(JNIEnv* env);

    // The rest with ourLock held.

    // Stores the length of the recording as two properties, if there was one.
    static void storeDuration();
    // Empties the table, forgets open waits and tags, and tells readers.
    static void clearMonitorData();
    // A thread has ended: a wait that it left open goes.
    static void threadEnds(int trn);
    // Adds the rows in which these threads waited to ourOldestFinishedThreads, and deletes them.
    static void mergeMonitorUsage(ZSet<int>* trns);
};
