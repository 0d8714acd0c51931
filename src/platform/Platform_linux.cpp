// Linux: processes through procfs, a CPU clock for each thread.
#include "platform/Platform.h"

#include <ctype.h>
#include <dirent.h>
#include <errno.h>
#include <fcntl.h>
#include <limits.h>
#include <locale.h>
#include <malloc.h>
#include <netinet/in.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/mman.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <time.h>
#include <unistd.h>

namespace {

const long NS_PER_SECOND = 1000000000L;
const size_t INITIAL_ARGUMENT_BYTES = 4096;
// No process has more: the kernel bounds the arguments by a part of the stack limit.
const size_t MAX_ARGUMENT_BYTES = 64 * 1024 * 1024;
const size_t STAT_BYTES = 1024;
// Fields of /proc/<pid>/stat, counted from the one behind the name in parentheses.
const int STAT_STATE = 0;
const int STAT_START_TIME = 19;
// A thread's CPU clock is named by its kernel id: bits of the id inverted above three bits that
// say "per thread" (4) and "scheduler time" (2). This is the kernel's fixed clock id layout.
const unsigned THREAD_SCHEDULER_CLOCK = 6;
// The kernel gives no id above this. A far larger one would overflow into another clock's name.
const long MAX_NATIVE_ID = 1L << 22;

int openProcFile(int pid, const char* file) {
    char path[64];
    snprintf(path, sizeof(path), "/proc/%d/%s", pid, file);
    return open(path, O_RDONLY | O_CLOEXEC);
}

// Bytes read into the buffer, always fewer than its size; -1 on failure.
ssize_t readUpTo(int fd, char* buffer, size_t size) {
    size_t length = 0;
    while (length < size) {
        ssize_t count = read(fd, buffer + length, size - length);
        if (count < 0 && errno == EINTR) {
            continue;
        }
        if (count < 0) {
            return -1;
        }
        if (count == 0) {
            break;
        }
        length += static_cast<size_t>(count);
    }
    return static_cast<ssize_t>(length);
}

// The n-th blank-separated field behind the process name, or null. The name may itself hold
// blanks and parentheses, so its end is the last closing one.
const char* statField(char* text, int index) {
    char* position = strrchr(text, ')');
    if (position == nullptr) {
        return nullptr;
    }
    position++;
    for (int i = 0;; i++) {
        while (*position == ' ') {
            position++;
        }
        if (*position == 0) {
            return nullptr;
        }
        if (i == index) {
            return position;
        }
        while (*position != ' ' && *position != 0) {
            position++;
        }
    }
}

bool readStat(int pid, char (&buffer)[STAT_BYTES]) {
    int fd = openProcFile(pid, "stat");
    if (fd < 0) {
        return false;
    }
    ssize_t length = readUpTo(fd, buffer, sizeof(buffer) - 1);
    close(fd);
    if (length <= 0) {
        return false;
    }
    buffer[length] = 0;
    return true;
}

// The whole file in malloc memory with a zero behind it; null on failure.
char* readWholeFile(int fd, size_t* length) {
    size_t capacity = INITIAL_ARGUMENT_BYTES;
    size_t used = 0;
    char* buffer = static_cast<char*>(malloc(capacity + 1));
    while (buffer != nullptr) {
        ssize_t count = readUpTo(fd, buffer + used, capacity - used);
        if (count < 0) {
            free(buffer);
            return nullptr;
        }
        used += static_cast<size_t>(count);
        if (used < capacity || capacity >= MAX_ARGUMENT_BYTES) {
            buffer[used] = 0;
            *length = used;
            return buffer;
        }
        capacity *= 2;
        char* larger = static_cast<char*>(realloc(buffer, capacity + 1));
        if (larger == nullptr) {
            free(buffer);
        }
        buffer = larger;
    }
    return nullptr;
}

// One end of a TCP connection, an IPv4 address as the IPv6 address that stands for it.
struct Endpoint {
    unsigned char address[16];
    unsigned port;
};

bool toEndpoint(const sockaddr_storage& from, Endpoint* to) {
    static const unsigned char mapped[12] = {0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0xff, 0xff};
    if (from.ss_family == AF_INET6) {
        const sockaddr_in6* ip6 = reinterpret_cast<const sockaddr_in6*>(&from);
        memcpy(to->address, &ip6->sin6_addr, sizeof(to->address));
        to->port = ntohs(ip6->sin6_port);
        return true;
    }
    if (from.ss_family != AF_INET) {
        return false;
    }
    const sockaddr_in* ip4 = reinterpret_cast<const sockaddr_in*>(&from);
    memcpy(to->address, mapped, sizeof(mapped));
    memcpy(to->address + sizeof(mapped), &ip4->sin_addr, 4);
    to->port = ntohs(ip4->sin_port);
    return true;
}

// Reads "0100007F:2711": words of the address as hexadecimal numbers of this machine's byte order.
// Null if the text is none.
const char* parseEndpoint(const char* text, Endpoint* to) {
    while (*text == ' ') {
        text++;
    }
    const size_t digits = strspn(text, "0123456789ABCDEFabcdef");
    if ((digits != 8 && digits != 32) || text[digits] != ':') {
        return nullptr;
    }
    unsigned words[4] = {0, 0, htonl(0xffff), 0};
    for (size_t i = 0; i < digits / 8; i++) {
        char word[9] = {};
        memcpy(word, text + i * 8, 8);
        words[digits == 8 ? 3 : i] = static_cast<unsigned>(strtoul(word, nullptr, 16));
    }
    memcpy(to->address, words, sizeof(to->address));
    char* end = nullptr;
    to->port = static_cast<unsigned>(strtoul(text + digits + 1, &end, 16));
    return end;
}

bool isSame(const Endpoint& a, const Endpoint& b) {
    return a.port == b.port && memcmp(a.address, b.address, sizeof(a.address)) == 0;
}

// The user in a line of /proc/net/tcp: "sl local remote st tx:rx tr:when retrnsmt uid timeout
// inode ...". -1 for another connection. A socket that no process holds any more has inode 0, and
// its line may name any user.
long userOfLine(const char* line, const Endpoint& local, const Endpoint& remote) {
    const char* position = strchr(line, ':');
    Endpoint from;
    Endpoint to;
    position = position == nullptr ? nullptr : parseEndpoint(position + 1, &from);
    position = position == nullptr ? nullptr : parseEndpoint(position, &to);
    if (position == nullptr || !isSame(from, local) || !isSame(to, remote)) {
        return -1;
    }
    unsigned long user = 0;
    unsigned long inode = 0;
    const int read = sscanf(position, "%*s %*s %*s %*s %lu %*s %lu", &user, &inode);
    return read == 2 && inode != 0 ? static_cast<long>(user) : -1;
}

long findUserOfConnection(const char* table, const Endpoint& local, const Endpoint& remote) {
    FILE* file = fopen(table, "re");
    if (file == nullptr) {
        return -1;
    }
    char line[512];
    long user = -1;
    while (user < 0 && fgets(line, sizeof(line), file) != nullptr) {
        user = userOfLine(line, local, remote);
    }
    fclose(file);
    return user;
}

} // namespace

const char* Platform::name() {
    return "Linux";
}

bool Platform::listProcesses(ProcessVisitor visitor, void* context) {
    DIR* directory = opendir("/proc");
    if (directory == nullptr) {
        return false;
    }
    bool sawSelf = false;
    bool goOn = true;
    for (dirent* entry = readdir(directory); goOn && entry != nullptr; entry = readdir(directory)) {
        if (!isdigit(static_cast<unsigned char>(entry->d_name[0]))) {
            continue;
        }
        long pid = strtol(entry->d_name, nullptr, 10);
        if (pid <= 0 || pid > INT_MAX) {
            continue;
        }
        sawSelf = true;
        goOn = visitor(static_cast<int>(pid), context);
    }
    closedir(directory);
    // A /proc without a single process is not procfs: nobody may conclude that all have died.
    return sawSelf;
}

bool Platform::isRunning(int pid) {
    char text[STAT_BYTES];
    if (pid <= 0 || !readStat(pid, text)) {
        return false;
    }
    const char* state = statField(text, STAT_STATE);
    return state != nullptr && *state != 'Z' && *state != 'X';
}

bool Platform::processArguments(int pid, ArgumentVisitor visitor, void* context) {
    int fd = openProcFile(pid, "cmdline");
    if (fd < 0) {
        return false;
    }
    size_t length = 0;
    char* text = readWholeFile(fd, &length);
    close(fd);
    if (text == nullptr) {
        return false;
    }
    for (size_t position = 0; position < length; position += strlen(text + position) + 1) {
        visitor(text + position, context);
    }
    free(text);
    return length > 0;
}

long Platform::processStartTime(int pid) {
    char text[STAT_BYTES];
    if (pid <= 0 || !readStat(pid, text)) {
        return 0;
    }
    const char* field = statField(text, STAT_START_TIME);
    return field == nullptr ? 0 : strtol(field, nullptr, 10);
}

unsigned Platform::pidNamespace() {
    struct stat info;
    return stat("/proc/self/ns/pid", &info) == 0 ? static_cast<unsigned>(info.st_ino) : 0;
}

long Platform::processMemory() {
    char text[128];
    const int file = open("/proc/self/statm", O_RDONLY | O_CLOEXEC);
    const ssize_t length = file < 0 ? -1 : read(file, text, sizeof(text) - 1);
    if (file >= 0) {
        close(file);
    }
    text[length < 0 ? 0 : length] = 0;
    const char* const resident = strchr(text, ' ');
    return resident == nullptr ? -1 : strtol(resident, nullptr, 10) * sysconf(_SC_PAGESIZE);
}

long Platform::processUser(int pid) {
    char path[32];
    snprintf(path, sizeof(path), "/proc/%d", pid);
    struct stat status;
    return stat(path, &status) == 0 ? static_cast<long>(status.st_uid) : -1;
}

long Platform::peerUser(int socket) {
    // The kernel gives the tables in pieces: a connection may be passed over while others come and
    // go.
    const int attempts = 3;
    static const char* const tables[] = {"/proc/self/net/tcp", "/proc/self/net/tcp6"};
    sockaddr_storage own;
    sockaddr_storage other;
    socklen_t ownLength = sizeof(own);
    socklen_t otherLength = sizeof(other);
    Endpoint here;
    Endpoint there;
    if (getsockname(socket, reinterpret_cast<sockaddr*>(&own), &ownLength) != 0 ||
        getpeername(socket, reinterpret_cast<sockaddr*>(&other), &otherLength) != 0 ||
        !toEndpoint(own, &here) || !toEndpoint(other, &there)) {
        return -1;
    }
    for (int i = 0; i < attempts; i++) {
        for (const char* table : tables) {
            const long user = findUserOfConnection(table, there, here);
            if (user >= 0) {
                return user;
            }
        }
    }
    return -1;
}

long Platform::getCurrentThreadNativeID() {
    return syscall(SYS_gettid);
}

long Platform::threadCPUTimeNs(long nativeThreadID) {
    if (nativeThreadID <= 0 || nativeThreadID > MAX_NATIVE_ID) {
        return -1;
    }
    clockid_t clock = static_cast<clockid_t>((~static_cast<unsigned>(nativeThreadID) << 3) |
                                             THREAD_SCHEDULER_CLOCK);
    timespec time;
    return clock_gettime(clock, &time) == 0 ? time.tv_sec * NS_PER_SECOND + time.tv_nsec : -1;
}

long Platform::currentThreadCPUTimeNs() {
    timespec time;
    return clock_gettime(CLOCK_THREAD_CPUTIME_ID, &time) == 0
               ? time.tv_sec * NS_PER_SECOND + time.tv_nsec
               : -1;
}

// The same without the system call that knows roots: component by component, no link followed.
static int openWithoutLinks(int folder, const char* path, int flags) {
    int current = dup(folder);
    while (current >= 0) {
        path += strspn(path, "/");
        const size_t length = strcspn(path, "/");
        const bool last = path[length + strspn(path + length, "/")] == 0;
        char name[NAME_MAX + 1];
        const bool isParent = length == 2 && path[0] == '.' && path[1] == '.';
        if (length > NAME_MAX || isParent) {
            errno = EINVAL;
            break;
        }
        memcpy(name, length == 0 ? "." : path, length == 0 ? 1 : length);
        name[length == 0 ? 1 : length] = 0;
        const int next =
            openat(current, name, O_NOFOLLOW | O_CLOEXEC | (last ? flags : O_PATH | O_DIRECTORY));
        const int error = errno;
        close(current);
        errno = error;
        if (last || next < 0) {
            return next;
        }
        current = next;
        path += length;
    }
    const int error = errno;
    if (current >= 0) {
        close(current);
    }
    errno = error;
    return -1;
}

int Platform::openInRoot(int folder, const char* path, int flags) {
    // The kernel's number of the call, its argument and its flags; old C libraries lack them.
    const long OPENAT2 = 437;
    const unsigned long NO_MAGIC_LINKS = 2;
    const unsigned long IN_ROOT = 16;
    const struct {
        unsigned long flags, mode, resolve;
    } how = {static_cast<unsigned long>(flags | O_CLOEXEC), 0, NO_MAGIC_LINKS | IN_ROOT};
    const long result = syscall(OPENAT2, folder, path, &how, sizeof how);
    // Sandboxes answer a call that they do not know with EPERM.
    if (result >= 0 || (errno != ENOSYS && errno != EPERM)) {
        return static_cast<int>(result);
    }
    return openWithoutLinks(folder, path, flags);
}

bool Platform::enterNamespace(int descriptor) {
    return syscall(SYS_setns, descriptor, 0) == 0;
}

void Platform::releasePages(void* start, size_t bytes) {
    madvise(start, bytes, MADV_DONTNEED);
}

// Kernels before 5.14 refuse; the headers of older systems don't name it.
void Platform::populatePages(void* start, size_t bytes) {
    constexpr int populateWrite = 23;
    madvise(start, bytes, populateWrite);
}

void Platform::releaseFreeMemory() {
#ifdef __GLIBC__
    malloc_trim(0);
#endif
}

const char* Platform::errorText(int error, char*, size_t) {
    // The application may have chosen another language.
    static const locale_t english = newlocale(LC_ALL_MASK, "C", static_cast<locale_t>(nullptr));
    return error == 0 || english == nullptr ? nullptr : strerror_l(error, english);
}

int Platform::peerProcess(int descriptor) {
    ucred peer = {};
    socklen_t size = sizeof(peer);
    return getsockopt(descriptor, SOL_SOCKET, SO_PEERCRED, &peer, &size) == 0 ? peer.pid : 0;
}
