// Who runs and who blocks whom, from two thread dumps a moment apart.
#pragma once

#include "client/threads/HotSpotDump.h"

#include <string>
#include <vector>

namespace vdk {

struct ThreadNow {
    HotSpotThread thread;
    double cpuPercent = -1; // of one processor between the dumps; -1 where it is not known
    std::string pool;       // the name with * for its numbers: threads of a pool have it in common
    int blocker = -1;       // index of who holds what it waits for
    int blocked = 0;        // threads that wait for it, and for those in turn
    bool isDeadlocked = false;
};

// In the order of their CPU time between the dumps. A thread that only one of them has is told as
// that has it.
std::vector<ThreadNow> threadsNow(const std::vector<HotSpotThread>& before,
                                  const std::vector<HotSpotThread>& now, double seconds);

// "http-*-exec-*" of "http-8080-exec-12".
std::string poolOf(const std::string& name);

// "a, which b blocks, which ...": the names from the thread to who is at the end of the chain.
std::vector<int> chainOf(const std::vector<ThreadNow>& threads, int index);

} // namespace vdk
