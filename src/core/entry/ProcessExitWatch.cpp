#include "core/entry/ProcessExitWatch.h"

#include "core/ground/ZLock.h"
#include "platform/Platform.h"

namespace {

struct WatchedProcess {
    int pid;
    int row;
    long startTime; // 0 if the system does not tell
};

// Never destroyed: the probe's thread is a daemon.
ZLock& ourWatchLock = *new ZLock("ourProcessExitWatchLock");
ZVector<WatchedProcess>& ourWatched = *new ZVector<WatchedProcess>();

bool hasEnded(const WatchedProcess& process) {
    return !Platform::isRunning(process.pid) ||
           Platform::processStartTime(process.pid) != process.startTime;
}

} // namespace

bool ProcessExitWatch::add(int pid, int row) {
    const WatchedProcess process = {pid, row, Platform::processStartTime(pid)};
    if (pid <= 0 || !Platform::isRunning(pid)) {
        return false;
    }
    LockHolder lock(ourWatchLock);
    ourWatched.push(process);
    return true;
}

void ProcessExitWatch::takeExited(ZVector<int>* rows) {
    LockHolder lock(ourWatchLock);
    for (int i = ourWatched.getSize() - 1; i >= 0; i--) {
        if (hasEnded(ourWatched[i])) {
            rows->push(ourWatched[i].row);
            ourWatched.removeRange(i, i + 1);
        }
    }
}
