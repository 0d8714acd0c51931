#pragma once

#include "core/ground/ZVector.h"

// ProcessExitWatch: child processes whose end a probe wants to learn of. The JVM itself waits for
// its children, so the watch only looks whether they still run; an id that was given to a new
// process meanwhile counts as ended. Thread-safe.
class ProcessExitWatch {
public:
    // Watches the process under the probe's row number. False if there is no such process.
    static bool add(int pid, int row);
    // The rows of processes that have ended since they were added; each is given once.
    static void takeExited(ZVector<int>* rows);
};
