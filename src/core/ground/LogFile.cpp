#include "core/ground/LogFile.h"

#include "core/ground/ConfigFile.h"
#include "core/ground/Options.h"
#include "platform/Platform.h"

#include <atomic>
#include <cstdlib>
#include <cstring>
#include <dirent.h>
#include <fcntl.h>
#include <limits.h>
#include <sys/stat.h>
#include <time.h>
#include <unistd.h>

namespace {

constexpr mode_t LOG_MODE = 0600;
const char SUFFIX[] = ".log";
const char OLDER[] = ".1";
constexpr long MEGABYTE = 1048576;
constexpr time_t HOUR = 3600;
constexpr time_t DAY = 24 * HOUR;
// Its time is that of the last look through the folder.
const char MARK[] = "/.swept";
// A log stays for two weeks; for a day where more than this many have come together.
constexpr time_t KEPT_DAYS = 14;
constexpr int MANY_LOGS = 500;

// Told apart from other names for good: nothing may be allocated when the file is full.
char ourPath[PATH_MAX];
char ourOlderPath[PATH_MAX];
std::atomic<long> ourBytes{0};
std::atomic_flag ourIsTurning = ATOMIC_FLAG_INIT;

int openNew(const char* path) {
    return ::open(path, O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK,
                  LOG_MODE);
}

// The process whose log has this name; 0 if the name is another one.
int ownerOf(const char* name) {
    char* end = nullptr;
    const long pid = name[0] < '1' || name[0] > '9' ? 0 : strtol(name, &end, 10);
    if (pid < 1 || pid > INT_MAX || strncmp(end, SUFFIX, strlen(SUFFIX)) != 0) {
        return 0;
    }
    const char* const rest = end + strlen(SUFFIX);
    return *rest == 0 || strcmp(rest, OLDER) == 0 ? static_cast<int>(pid) : 0;
}

// Calls visit(name, pid) for each log in the directory.
template <typename Visitor>
void eachLog(const ZString& directory, Visitor&& visit) {
    DIR* const entries = opendir(directory.c_str());
    if (entries == nullptr) {
        return;
    }
    for (const dirent* entry = readdir(entries); entry != nullptr; entry = readdir(entries)) {
        const int pid = ownerOf(entry->d_name);
        if (pid != 0) {
            visit(entry->d_name, pid);
        }
    }
    closedir(entries);
}

void removeIfOld(const ZString& path, int pid, time_t before) {
    struct stat status;
    if (lstat(path.c_str(), &status) == 0 && S_ISREG(status.st_mode) &&
        status.st_uid == geteuid() && status.st_mtime < before && !Platform::mayExist(pid)) {
        unlink(path.c_str());
    }
}

// Thousands of logs take milliseconds: one process an hour looks through them.
bool isSweepDue(const ZString& directory) {
    const ZString mark = directory + MARK;
    const time_t now = time(nullptr);
    struct stat status;
    if (lstat(mark.c_str(), &status) == 0 && status.st_mtime > now - HOUR &&
        status.st_mtime < now + HOUR) {
        return false;
    }
    const int descriptor = openNew(mark.c_str());
    if (descriptor >= 0) {
        futimens(descriptor, nullptr);
        ::close(descriptor);
    }
    return true;
}

void sweep(const ZString& directory) {
    if (!isSweepDue(directory)) {
        return;
    }
    int count = 0;
    eachLog(directory, [&](const char*, int) { count++; });
    const time_t before = time(nullptr) - (count > MANY_LOGS ? 1 : KEPT_DAYS) * DAY;
    eachLog(directory,
            [&](const char* name, int pid) { removeIfOld(directory + "/" + name, pid, before); });
}

void copyPath(char (&to)[PATH_MAX], const ZString& path) {
    snprintf(to, sizeof to, "%s", path.c_str());
}

// Where no new file can be had the full one begins again: it never grows beyond its limit.
void turn(FILE* log) noexcept {
    const int fresh = rename(ourPath, ourOlderPath) == 0 ? openNew(ourPath) : -1;
    if (fresh < 0 || dup3(fresh, fileno(log), O_CLOEXEC) < 0) {
        // Without success the lines go on at the end of the old file.
        static_cast<void>(ftruncate(fileno(log), 0) == 0);
    }
    if (fresh >= 0) {
        ::close(fresh);
    }
}

} // namespace

FILE* LogFile::open(const ZString& directory, ZString* path) {
    *path = directory + "/" + longToString(getpid()) + SUFFIX;
    if (!directory.startsWith("/") ||
        path->getLength() + static_cast<int>(sizeof OLDER) > PATH_MAX) {
        return nullptr;
    }
    mkdirs(directory);
    const int descriptor = openNew(path->c_str());
    FILE* const log = descriptor < 0 ? nullptr : fdopen(descriptor, "a");
    if (log == nullptr) {
        if (descriptor >= 0) {
            ::close(descriptor);
        }
        return nullptr;
    }
    struct stat status;
    ourBytes = fstat(descriptor, &status) == 0 ? static_cast<long>(status.st_size) : 0;
    copyPath(ourPath, *path);
    copyPath(ourOlderPath, *path + OLDER);
    sweep(directory);
    return log;
}

void LogFile::wrote(FILE* log, int bytes) noexcept {
    const long limit = ourOptions == nullptr ? 0 : ourOptions->logLimit * MEGABYTE;
    if (bytes < 1 || (ourBytes += bytes) < limit || limit == 0 || ourIsTurning.test_and_set()) {
        return;
    }
    turn(log);
    ourBytes = 0;
    ourIsTurning.clear();
}
