#pragma once

#include "core/ground/ZSet.h"

// ProcessList: the processes of this machine at one moment. A process that the system hides from
// this user never counts as dead, nor does any when the list can't be had.
class ProcessList {
public:
    // Takes the list.
    ProcessList();

    // False when the system gave no list.
    bool isKnown() const { return known; }
    bool isAlive(int pid);

private:
    static bool addProcess(int pid, void* context);

    ZSet<int> pids;
    bool known;
};
