#pragma once

#include "core/ground/ZSet.h"

// FinishedThreads: the threads that have ended and still have data of their own, in the order of
// their end. Beyond the limit of the option deadthreadlimit the oldest are merged into
// ourOldestFinishedThreads, first of all those that ended while nothing was recorded. Caller holds
// ourLock.
class FinishedThreads {
public:
    // A thread has ended. Every hundredth call, the first included, collects unused strings if
    // enough has happened for what that costs.
    static void add(int trn);
    // Number of ended threads that are not merged yet.
    static int count();
    // Forgets everything, for a new database.
    static void reset();
};
