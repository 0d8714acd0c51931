#pragma once

#include <sys/wait.h>
#include <unistd.h>

// The id of a process that has ended and was waited for.
inline int deadPid() {
    const int pid = fork();
    if (pid == 0) {
        _exit(0);
    }
    waitpid(pid, nullptr, 0);
    return pid;
}
