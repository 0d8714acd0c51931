#pragma once

#include "core/ground/ZString.h"

#include <jni.h>

// Monitors: the table of waits by waiter, owner, monitor class and frame, and the length of its
// recording. Caller holds ourLock, but for the start.
class Monitors {
public:
    // Why the recording can't be started; empty if it runs.
    static ZString startMonitorProfiling(JNIEnv* env);

    // getTimeNs() at the start of the last recording, 0 before the first, and at its end.
    static long ourMonitorRecordingStartNs;
    static long ourMonitorRecordingLastNs;

    // Stores the length of the recording as two properties, if there was one.
    static void storeDuration();
    // Empties the table and tells readers.
    static void clearMonitorData();
};
