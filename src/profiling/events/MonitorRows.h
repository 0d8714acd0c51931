#pragma once

#include "core/ground/ZHash.h"
#include "core/ground/ZSet.h"
#include "profiling/events/ClassNameTags.h"

#include <jvmti.h>

class ThreadInfo;

// MonitorRows: the rows of monitor, one for each waiter, owner, class and stack, whatever the
// threads wait for. Caller holds ourLock in every operation but where told otherwise.
class MonitorRows {
public:
    // Names of the classes of monitors and blockers.
    static ClassNameTags& names();
    // Whether monitors are recorded.
    static bool isRecording();

    // Reads what is to be left out for measurements of what the parts of a handler cost.
    static void readDebugOptions();
    // The first thing that every handler does, without the lock; true if there is nothing more to
    // do.
    static bool isTestOnly();

    // Frame of the current thread's stack; 0 if there is none to record.
    static int getCurrentFrame(JNIEnv* env);
    // The key's row, made if need be.
    static int getRow(const MonitorKey& key);
    // One more wait, which has ended.
    static void add(const MonitorKey& key, long timeNs);

    // Changes whenever waits that go on must not be added any more.
    static int getEpoch();
    static void beginEpoch();

    // The thread that a stored reference stands for, asked without the lock: the JVM may wait until
    // no virtual thread is being mounted.
    static bool isKnownThread(jthread thread);
    // Its number, 0 if it has ended meanwhile.
    static int getTRN(jthread thread);

    static void clear();
    static void reset();
    static void merge(ZSet<int>* trns);
};
