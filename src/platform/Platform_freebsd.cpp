// FreeBSD: processes through libkvm. The system gives this agent no clock for a single thread, so
// every thread reads the clock of the process.
#include "platform/Platform.h"

#include <fcntl.h>
#include <kvm.h>
#include <limits.h>
#include <pthread_np.h>
#include <sys/param.h>
#include <sys/sysctl.h>
#include <sys/user.h>

namespace {

const long US_PER_SECOND = 1000000L;

// An open libkvm handle with the records of one or all processes. "/dev/null" stands for the
// memory and the swap: only what the kernel tells through sysctl is needed, and no privilege.
class KernelProcesses {
public:
    KernelProcesses(int operation, int argument) : kernel(nullptr), records(nullptr), count(0) {
        char errors[_POSIX2_LINE_MAX];
        kernel = kvm_openfiles("/dev/null", "/dev/null", "/dev/null", O_RDONLY, errors);
        if (kernel != nullptr) {
            records = kvm_getprocs(kernel, operation, argument, &count);
        }
        if (records == nullptr) {
            count = 0;
        }
    }
    ~KernelProcesses() {
        if (kernel != nullptr) {
            kvm_close(kernel);
        }
    }
    KernelProcesses(const KernelProcesses&) = delete;
    KernelProcesses& operator=(const KernelProcesses&) = delete;

    // The record of the process, or null.
    const kinfo_proc* find(int pid) const {
        for (int i = 0; i < count; i++) {
            if (records[i].ki_pid == pid) {
                return &records[i];
            }
        }
        return nullptr;
    }

    kvm_t* kernel;
    kinfo_proc* records; // owned by the handle
    int count;
};

} // namespace

const char* Platform::name() {
    return "FreeBSD";
}

bool Platform::listProcesses(ProcessVisitor visitor, void* context) {
    KernelProcesses processes(KERN_PROC_PROC, 0);
    for (int i = 0; i < processes.count; i++) {
        if (!visitor(processes.records[i].ki_pid, context)) {
            break;
        }
    }
    return processes.count > 0;
}

bool Platform::isRunning(int pid) {
    KernelProcesses processes(KERN_PROC_PID, pid);
    const kinfo_proc* process = processes.find(pid);
    return process != nullptr && process->ki_stat != SZOMB;
}

bool Platform::processArguments(int pid, ArgumentVisitor visitor, void* context) {
    KernelProcesses processes(KERN_PROC_PID, pid);
    const kinfo_proc* process = processes.find(pid);
    if (process == nullptr) {
        return false;
    }
    char** arguments = kvm_getargv(processes.kernel, process, 0);
    if (arguments == nullptr || arguments[0] == nullptr) {
        return false;
    }
    for (int i = 0; arguments[i] != nullptr; i++) {
        visitor(arguments[i], context);
    }
    return true;
}

long Platform::processStartTime(int pid) {
    KernelProcesses processes(KERN_PROC_PID, pid);
    const kinfo_proc* process = processes.find(pid);
    return process == nullptr
               ? 0
               : process->ki_start.tv_sec * US_PER_SECOND + process->ki_start.tv_usec;
}

long Platform::processUser(int pid) {
    KernelProcesses processes(KERN_PROC_PID, pid);
    const kinfo_proc* process = processes.find(pid);
    return process == nullptr ? -1 : static_cast<long>(process->ki_uid);
}

long Platform::getCurrentThreadNativeID() {
    return pthread_getthreadid_np();
}

long Platform::threadCPUTimeNs(long) {
    return processCPUTimeNs();
}

long Platform::currentThreadCPUTimeNs() {
    return processCPUTimeNs();
}
