#include "snapshot/SnapshotFile.h"

#include "platform/Platform.h"

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <time.h>
#include <unistd.h>

namespace {

const mode_t FILE_MODE = 0600;
const char INFIX[] = ".snapshot.";
const char SUFFIX[] = ".tmp";
const char SCRATCH_SUFFIX[] = ".2.tmp";
// A folder that containers share holds files of processes that cannot be seen from here.
const time_t OLD_SECONDS = 3600;

ZString directoryOf(const ZString& path) {
    const int slash = path.lastIndexOf('/');
    return slash < 0 ? ZString(".") : path.substring(0, slash + 1);
}

// The process that makes the file, by its name; 0 if the name is another one.
int makerOf(const ZString& name) {
    const int infix = name.indexOf(INFIX);
    if (infix < 0 || !name.endsWith(SUFFIX)) {
        return 0;
    }
    return atoi(name.c_str() + infix + strlen(INFIX));
}

void removeIfLeft(const ZString& path, int maker) {
    struct stat status;
    if (!Platform::mayExist(maker) && lstat(path.c_str(), &status) == 0 &&
        S_ISREG(status.st_mode) && status.st_uid == geteuid() &&
        status.st_mtime < time(nullptr) - OLD_SECONDS) {
        unlink(path.c_str());
    }
}

void sweep(const ZString& directory) {
    DIR* const entries = opendir(directory.c_str());
    if (entries == nullptr) {
        return;
    }
    for (dirent* entry = readdir(entries); entry != nullptr; entry = readdir(entries)) {
        const int maker = makerOf(entry->d_name);
        if (maker > 0) {
            removeIfLeft(directory + "/" + entry->d_name, maker);
        }
    }
    closedir(entries);
}

// Only a file may be replaced: what else stands there was put there by somebody.
bool mayStandAt(const ZString& path) {
    struct stat status;
    return lstat(path.c_str(), &status) != 0 || S_ISREG(status.st_mode);
}

int makeFile(const ZString& path, int mode) {
    return open(path.c_str(), mode | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC | O_NOCTTY,
                FILE_MODE);
}

} // namespace

SnapshotFile::SnapshotFile(const ZString& path)
    : target(path), temporary(path + "." + longToString(Platform::vdk_getpid()) + SUFFIX),
      descriptor(-1), scratch(-1) {
    sweep(directoryOf(path));
    if (mayStandAt(target)) {
        // One of this name is of an ended process that had this id.
        unlink(temporary.c_str());
        descriptor = makeFile(temporary, O_WRONLY);
    }
}

SnapshotFile::~SnapshotFile() {
    if (descriptor >= 0) {
        ::close(descriptor);
        unlink(temporary.c_str());
    }
    if (scratch >= 0) {
        ::close(scratch);
    }
}

int SnapshotFile::openScratch() {
    const ZString name = target + "." + longToString(Platform::vdk_getpid()) + SCRATCH_SUFFIX;
    unlink(name.c_str());
    scratch = makeFile(name, O_RDWR);
    unlink(name.c_str());
    return scratch;
}

ZString SnapshotFile::close() {
    if (descriptor < 0) {
        return ZString();
    }
    const int closing = descriptor;
    descriptor = -1;
    // After EINTR the descriptor is gone as well.
    const int closeError = ::close(closing) == 0 || errno == EINTR ? 0 : errno;
    const int nameError = rename(temporary.c_str(), target.c_str()) == 0 ? 0 : errno;
    const int error = closeError != 0 ? closeError : nameError;
    return error == 0 ? ZString() : ZString(strerror(error));
}
