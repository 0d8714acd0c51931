#include "machine/ProcessList.h"

#include "platform/Platform.h"

namespace {
const int USUAL_PROCESS_COUNT = 400;
}

ProcessList::ProcessList() : pids(USUAL_PROCESS_COUNT), known(false) {
    known = Platform::listProcesses(addProcess, this);
}

bool ProcessList::addProcess(int pid, void* context) {
    // The kernel's own process has the id 0 on some systems, which is no key of the set.
    if (pid > 0) {
        static_cast<ProcessList*>(context)->pids.add(pid);
    }
    return true;
}

bool ProcessList::isAlive(int pid) {
    if (!known) {
        return true;
    }
    return pid > 0 && (pids.contains(pid) || Platform::mayExist(pid));
}
