#pragma once

#include "core/ground/ZSet.h"

// FinishedThreads: the threads that have ended and still have data of their own, in the order of
// their end. Beyond the limit of the option deadthreadlimit the oldest are merged into
// ourOldestFinishedThreads, first of all those that ended while nothing was recorded. Caller holds
// ourLock.
//
// The row of a merged thread stays as long as a row of another table names it. Rows that none names
// are freed a batch at a time, so neither the table nor the time of a thread's end grows with the
// threads that ever ended.
class FinishedThreads {
public:
    // A thread has ended. Every hundredth call, the first included, collects unused strings if
    // enough has happened for what that costs.
    // row is the thread's in the table thread.
    static void add(int trn, int row);
    // Deletes the rows of merged threads that nothing names any more.
    static void freeUnnamedRows();
    // Number of ended threads that are not merged yet.
    static int count();
    // Forgets everything, for a new database.
    static void reset();
};
