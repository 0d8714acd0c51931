#pragma once

#include <cstring>

// What threads wait for in LockSupport.park, by the class of the blocker. In a row of monitor such
// a thread's owner is who holds the lock; 0 where it waits for others without one that could be
// named; the waiter itself where it waits for work, as with Object.wait().

// The class of a row without a blocker.
constexpr char NO_BLOCKER[] = "<no blocker>";

// Whether threads that park there have nothing to do: conditions, and the queues and pools that
// hand out work.
inline bool isBlockerOfIdleThreads(const char* className) {
    static const char* const begins[] = {
        NO_BLOCKER,
        "java.util.concurrent.ForkJoinPool",
        "java.util.concurrent.SynchronousQueue",
        "java.util.concurrent.LinkedTransferQueue",
    };
    for (const char* text : begins) {
        if (strncmp(className, text, strlen(text)) == 0) {
            return true;
        }
    }
    const char condition[] = "$ConditionObject";
    const size_t length = strlen(className);
    const size_t tail = sizeof condition - 1;
    return length > tail && strcmp(className + length - tail, condition) == 0;
}
