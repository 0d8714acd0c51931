// FreeBSD: processes through libkvm, a CPU clock for each thread.
#include "platform/Platform.h"

#include <errno.h>
#include <fcntl.h>
#include <kvm.h>
#include <limits.h>
#include <netinet/in.h>
#include <pthread_np.h>
#include <stdlib.h>
#include <string.h>
#include <sys/mman.h>
#include <sys/param.h>
#include <sys/socket.h>
#include <sys/socketvar.h>
#include <sys/sysctl.h>
#include <sys/time.h>
#include <sys/ucred.h>
#include <sys/un.h>
#include <sys/user.h>
#include <time.h>
#include <unistd.h>
// These need the ones above.
#include <netinet/in_pcb.h>
#include <netinet/tcp.h>
#include <netinet/tcp_var.h>

namespace {

const long US_PER_SECOND = 1000000L;
const long NS_PER_SECOND = 1000000000L;

long readClock(clockid_t clock) {
    timespec time;
    return clock_gettime(clock, &time) == 0 ? time.tv_sec * NS_PER_SECOND + time.tv_nsec : -1;
}

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

// A connection as the kernel lists it; the layout of the list changed with release 12.
#if __FreeBSD_version >= 1200026
const xsocket& socketOf(const xtcpcb& entry) {
    return entry.xt_inp.xi_socket;
}
bool hasProcess(const xtcpcb& entry) {
    return socketOf(entry).xso_so != 0;
}
#else
const xsocket& socketOf(const xtcpcb& entry) {
    return entry.xt_socket;
}
bool hasProcess(const xtcpcb& entry) {
    return socketOf(entry).xso_so != nullptr;
}
#endif

// One end of a TCP connection; an IPv4 address stands in the last four bytes.
struct Endpoint {
    unsigned char address[16];
    unsigned short port; // in network order
};

bool toEndpoint(const sockaddr_storage& from, Endpoint* to) {
    memset(to->address, 0, sizeof(to->address));
    if (from.ss_family == AF_INET) {
        const sockaddr_in* ip4 = reinterpret_cast<const sockaddr_in*>(&from);
        memcpy(to->address + 12, &ip4->sin_addr, 4);
        to->port = ip4->sin_port;
        return true;
    }
    if (from.ss_family != AF_INET6) {
        return false;
    }
    const sockaddr_in6* ip6 = reinterpret_cast<const sockaddr_in6*>(&from);
    const bool isMapped = IN6_IS_ADDR_V4MAPPED(&ip6->sin6_addr);
    memcpy(to->address + (isMapped ? 12 : 0),
           reinterpret_cast<const unsigned char*>(&ip6->sin6_addr) + (isMapped ? 12 : 0),
           isMapped ? 4 : 16);
    to->port = ip6->sin6_port;
    return true;
}

bool isAt(const Endpoint& end, const in_addr& ip4, const in6_addr& ip6, bool isIp6,
          unsigned short port) {
    unsigned char address[16] = {};
    const bool isMapped = isIp6 && IN6_IS_ADDR_V4MAPPED(&ip6);
    if (isIp6 && !isMapped) {
        memcpy(address, &ip6, sizeof(address));
    } else {
        memcpy(address + 12,
               isMapped ? reinterpret_cast<const unsigned char*>(&ip6) + 12
                        : reinterpret_cast<const unsigned char*>(&ip4),
               4);
    }
    return end.port == port && memcmp(end.address, address, sizeof(address)) == 0;
}

bool isConnection(const xtcpcb& entry, const Endpoint& local, const Endpoint& remote) {
    const in_conninfo& ends = entry.xt_inp.inp_inc;
    const bool isIp6 = (entry.xt_inp.inp_vflag & INP_IPV6) != 0;
    return isAt(local, ends.inc_laddr, ends.inc6_laddr, isIp6, ends.inc_lport) &&
           isAt(remote, ends.inc_faddr, ends.inc6_faddr, isIp6, ends.inc_fport);
}

// The user in the kernel's list: a head, entries that each begin with their length, and the head
// again.
long findUserOfConnection(const char* list, size_t size, const Endpoint& local,
                          const Endpoint& remote) {
    xinpgen head;
    if (size < sizeof(head)) {
        return -1;
    }
    memcpy(&head, list, sizeof(head));
    size_t position = static_cast<size_t>(head.xig_len);
    while (position != 0 && position + sizeof(xtcpcb) <= size) {
        xtcpcb entry;
        memcpy(&entry, list + position, sizeof(entry));
        if (static_cast<size_t>(entry.xt_len) < sizeof(entry)) {
            return -1;
        }
        if (hasProcess(entry) && isConnection(entry, local, remote)) {
            return static_cast<long>(socketOf(entry).so_uid);
        }
        position += static_cast<size_t>(entry.xt_len);
    }
    return -1;
}

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

unsigned Platform::pidNamespace() {
    return 0;
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

long Platform::processMemory() {
    KernelProcesses processes(KERN_PROC_PID, getpid());
    const kinfo_proc* process = processes.find(getpid());
    return process == nullptr ? -1 : static_cast<long>(process->ki_rssize) * getpagesize();
}

long Platform::processUser(int pid) {
    KernelProcesses processes(KERN_PROC_PID, pid);
    const kinfo_proc* process = processes.find(pid);
    return process == nullptr ? -1 : static_cast<long>(process->ki_uid);
}

long Platform::peerUser(int socket) {
    static const char list[] = "net.inet.tcp.pcblist";
    sockaddr_storage own;
    sockaddr_storage other;
    socklen_t ownLength = sizeof(own);
    socklen_t otherLength = sizeof(other);
    Endpoint here;
    Endpoint there;
    size_t size = 0;
    if (getsockname(socket, reinterpret_cast<sockaddr*>(&own), &ownLength) != 0 ||
        getpeername(socket, reinterpret_cast<sockaddr*>(&other), &otherLength) != 0 ||
        !toEndpoint(own, &here) || !toEndpoint(other, &there) ||
        sysctlbyname(list, nullptr, &size, nullptr, 0) != 0) {
        return -1;
    }
    char* const buffer = static_cast<char*>(malloc(size));
    long user = -1;
    if (buffer != nullptr && sysctlbyname(list, buffer, &size, nullptr, 0) == 0) {
        user = findUserOfConnection(buffer, size, there, here);
    }
    free(buffer);
    return user;
}

long Platform::getCurrentThreadNativeID() {
    return pthread_getthreadid_np();
}

long Platform::threadCPUTimeNs(long nativeThreadID) {
    clockid_t clock;
    if (nativeThreadID <= 0 ||
        clock_getcpuclockid2(static_cast<id_t>(nativeThreadID), CPUCLOCK_WHICH_TID, &clock) != 0) {
        return -1;
    }
    return readClock(clock);
}

long Platform::currentThreadCPUTimeNs() {
    return readClock(CLOCK_THREAD_CPUTIME_ID);
}

void Platform::releasePages(void* start, size_t bytes) {
    // MADV_DONTNEED keeps what is written here.
    madvise(start, bytes, MADV_FREE);
}

// Pages are made at the first write only.
void Platform::populatePages(void* /*start*/, size_t /*bytes*/) {}

// jemalloc gives back what lies idle.
void Platform::releaseFreeMemory() {}

const char* Platform::errorText(int error, char* buffer, size_t size) {
    return error != 0 && strerror_r(error, buffer, size) == 0 ? buffer : nullptr;
}

int Platform::openInRoot(int folder, const char* path, int flags) {
    while (*path == '/') {
        path++;
    }
    // Links that lead out of the folder fail, also those that a changed root would keep inside.
    return openat(folder, *path == 0 ? "." : path, flags | O_CLOEXEC | O_RESOLVE_BENEATH);
}

bool Platform::enterNamespace(int) {
    errno = ENOSYS;
    return false;
}

int Platform::peerProcess(int descriptor) {
    xucred peer = {};
    socklen_t size = sizeof(peer);
    return getsockopt(descriptor, SOL_LOCAL, LOCAL_PEERCRED, &peer, &size) == 0 ? peer.cr_pid : 0;
}
