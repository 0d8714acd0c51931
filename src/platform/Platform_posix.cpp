// What both systems share.
#include "platform/Platform.h"

#include <errno.h>
#include <pwd.h>
#include <signal.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/resource.h>
#include <sys/shm.h>
#include <sys/time.h>
#include <time.h>
#include <unistd.h>

namespace {

const long NS_PER_SECOND = 1000000000L;
const long NS_PER_MICROSECOND = 1000L;
const int SEGMENT_MODE = IPC_CREAT | 0666;
const size_t PASSWORD_BUFFER_SIZE = 16384;

long toNs(const timeval& time) {
    return time.tv_sec * NS_PER_SECOND + time.tv_usec * NS_PER_MICROSECOND;
}

} // namespace

int Platform::vdk_getpid() {
    return static_cast<int>(getpid());
}

bool Platform::mayExist(int pid) {
    return pid > 0 && (kill(pid, 0) == 0 || errno != ESRCH);
}

void Platform::hostID(char* buffer, size_t size) {
    snprintf(buffer, size, "%ld", gethostid());
}

bool Platform::userHome(char* buffer, size_t size) {
    passwd entry;
    passwd* found = nullptr;
    char strings[PASSWORD_BUFFER_SIZE];
    const bool isKnown =
        getpwuid_r(getuid(), &entry, strings, sizeof(strings), &found) == 0 && found != nullptr;
    const char* home = isKnown ? found->pw_dir : getenv("HOME");
    if (home == nullptr || home[0] != '/') {
        return false;
    }
    int length = snprintf(buffer, size, "%s", home);
    return length >= 0 && static_cast<size_t>(length) < size;
}

long Platform::processCPUTimeNs() {
    rusage usage;
    if (getrusage(RUSAGE_SELF, &usage) != 0) {
        return -1;
    }
    return toNs(usage.ru_utime) + toNs(usage.ru_stime);
}

long Platform::monotonicTimeNs() {
    timespec now;
    if (clock_gettime(CLOCK_MONOTONIC, &now) == 0) {
        return now.tv_sec * NS_PER_SECOND + now.tv_nsec;
    }
    timeval wall;
    return gettimeofday(&wall, nullptr) == 0 ? toNs(wall) : 0;
}

void* Platform::attachSharedMemory(int key, size_t size, SharedMemoryOutcome* outcome) {
    const int segment = shmget(static_cast<key_t>(key), size, SEGMENT_MODE);
    *outcome = SharedMemoryOutcome{nullptr, segment, 0, false};
    if (segment == -1) {
        *outcome = SharedMemoryOutcome{"shmget", -1, errno, false};
        return nullptr;
    }
    void* address = shmat(segment, nullptr, SHM_RND);
    if (address == nullptr || address == reinterpret_cast<void*>(-1)) {
        *outcome = SharedMemoryOutcome{"shmat", segment, errno, address == nullptr};
        return nullptr;
    }
    return address;
}

void* Platform::attachExistingSharedMemory(int key, size_t size) {
    int segment = shmget(static_cast<key_t>(key), size, 0);
    if (segment == -1) {
        return nullptr;
    }
    void* address = shmat(segment, nullptr, SHM_RND);
    return address == reinterpret_cast<void*>(-1) ? nullptr : address;
}

bool Platform::readSharedMemory(int key, void* buffer, size_t size) {
    const int segment = shmget(static_cast<key_t>(key), size, 0);
    void* address = segment == -1 ? nullptr : shmat(segment, nullptr, SHM_RDONLY);
    if (address == nullptr || address == reinterpret_cast<void*>(-1)) {
        return false;
    }
    memcpy(buffer, address, size);
    shmdt(address);
    return true;
}

void Platform::sleepMicroseconds(unsigned microseconds) {
    timespec left = {static_cast<time_t>(microseconds / 1000000u),
                     static_cast<long>(microseconds % 1000000u) * NS_PER_MICROSECOND};
    while (nanosleep(&left, &left) != 0 && errno == EINTR) {
    }
}
