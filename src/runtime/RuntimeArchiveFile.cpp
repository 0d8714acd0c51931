#include "runtime/RuntimeArchiveFile.h"

#include "core/ground/Logger.h"
#include "core/ground/UptimeProvider.h"
#include "core/ground/Version.h"
#include "machine/InterProcessMutex.h"
#include "runtime/RuntimeArchive.h"

#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

const char DEFAULT_DIRECTORY[] = "/tmp";
const char FILE_NAME[] = "/vdk" VDK_BUILD_STAMP ".jar";
const mode_t FILE_MODE = 0644;
const mode_t WRITABLE_BY_OTHERS = S_IWGRP | S_IWOTH;
const int TEMPORARY_NAME_ATTEMPTS = 16;

// An open file, closed at the end of a block.
class Descriptor {
public:
    Descriptor(const ZString& path, int flags, mode_t mode = 0)
        : fd(open(path.c_str(), flags | O_CLOEXEC | O_NOFOLLOW | O_NOCTTY, mode)) {}
    ~Descriptor() { close(); }
    Descriptor(const Descriptor&) = delete;
    Descriptor& operator=(const Descriptor&) = delete;
    bool isOpen() const { return fd >= 0; }
    int get() const { return fd; }
    bool close() {
        const bool good = fd < 0 || ::close(fd) == 0;
        fd = -1;
        return good;
    }

private:
    int fd;
};

ZString refusal(const char* text, const ZString& path) {
    return ZString("Cannot start: ") + text + path +
           "; to set alternate location for the file, use startup option 'tmpdir=<directory>'. "
           "To learn how to specify a startup option, read " VDK_OPTIONS_PAGE;
}

void refuse(const char* text, const ZString& path) {
    Logger::refusal(refusal(text, path));
}

// A regular file of this user or root, with one name, that nobody else may write: its content
// cannot change behind our back.
bool isSafe(const struct stat& status) {
    return S_ISREG(status.st_mode) && (status.st_uid == geteuid() || status.st_uid == 0) &&
           status.st_nlink == 1 && (status.st_mode & WRITABLE_BY_OTHERS) == 0;
}

bool isEqual(int fd, const ArchiveBytes& content) {
    unsigned char buffer[8192];
    long position = 0;
    for (;;) {
        const ssize_t count = read(fd, buffer, sizeof buffer);
        if (count < 0 && errno == EINTR) {
            continue;
        }
        if (count <= 0) {
            return count == 0 && position == content.size;
        }
        if (position + count > content.size ||
            memcmp(buffer, content.data + position, static_cast<size_t>(count)) != 0) {
            return false;
        }
        position += count;
    }
}

// OTHERS: the bytes are right, but another user can change them at any time.
enum class Existing { NONE, EQUAL, OTHERS, WRONG };

Existing examine(const ArchiveBytes& content, const ZString& path) {
    // Not blocking: a named pipe may stand in the place of the file.
    Descriptor file(path, O_RDONLY | O_NONBLOCK);
    if (!file.isOpen()) {
        return errno == ELOOP || errno == EACCES ? Existing::WRONG : Existing::NONE;
    }
    struct stat status;
    const bool equal = fstat(file.get(), &status) == 0 && S_ISREG(status.st_mode) &&
                       status.st_size == content.size && isEqual(file.get(), content);
    if (!equal) {
        return Existing::WRONG;
    }
    return isSafe(status) ? Existing::EQUAL : Existing::OTHERS;
}

// errno of the failure, or 0.
int writeAll(Descriptor& file, const ArchiveBytes& content) {
    long position = 0;
    while (position < content.size) {
        const ssize_t count = write(file.get(), content.data + position,
                                    static_cast<size_t>(content.size - position));
        if (count < 0 && errno == EINTR) {
            continue;
        }
        if (count <= 0) {
            return count == 0 ? ENOSPC : errno;
        }
        position += count;
    }
    // A file system may find only now that it has no room.
    return fsync(file.get()) == 0 && file.close() ? 0 : errno;
}

// Writes beside the path and renames, so that no reader ever sees a part. errno or 0.
int replace(const ArchiveBytes& content, const ZString& path) {
    for (int i = 0; i < TEMPORARY_NAME_ATTEMPTS; i++) {
        const ZString temporary =
            path + "." + longToString(getpid()) + "." + longToString(getTimeNs() & 0xffffff);
        Descriptor file(temporary, O_WRONLY | O_CREAT | O_EXCL, FILE_MODE);
        if (!file.isOpen()) {
            if (errno == EEXIST) {
                continue;
            }
            return errno;
        }
        // The user's file mode mask may not take the file away from other readers.
        fchmod(file.get(), FILE_MODE);
        int error = writeAll(file, content);
        if (error == 0 && rename(temporary.c_str(), path.c_str()) != 0) {
            error = errno;
        }
        if (error != 0) {
            unlink(temporary.c_str());
        }
        return error;
    }
    return EEXIST;
}

// For a directory that takes no new files: writes into the file that stands there, if it is safe.
int overwrite(const ArchiveBytes& content, const ZString& path) {
    Descriptor file(path, O_WRONLY | O_NONBLOCK);
    struct stat status;
    if (!file.isOpen() || fstat(file.get(), &status) != 0 || !isSafe(status)) {
        return EACCES;
    }
    return ftruncate(file.get(), 0) == 0 ? writeAll(file, content) : errno;
}

// What no other directory would change: no room, no descriptor.
bool isShortage(int error) {
    return error == ENOSPC || error == EDQUOT || error == EFBIG || error == EMFILE ||
           error == ENFILE;
}

// The classes need no file. Only who named the directory must hear that it does not serve.
RuntimeArchiveFile goOnWithoutFile(const ZString& path, const char* reason) {
    Logger::message(ZString("Jar file is not used, ") + reason + ": " + path);
    return RuntimeArchiveFile{path, false};
}

} // namespace

RuntimeArchiveFile writeArchiveFile(const ArchiveBytes& content, const ZString& path,
                                    bool isRequired) {
    const Existing existing = examine(content, path);
    if (existing == Existing::EQUAL) {
        Logger::message(ZString("Reusing existing jar file: ") + path);
        return RuntimeArchiveFile{path, true};
    }
    if (existing == Existing::WRONG) {
        Logger::message(ZString("Jar file exists but has wrong size or content: ") + path);
    } else if (existing == Existing::OTHERS) {
        Logger::message(ZString("Jar file exists but another user may change it: ") + path);
    }
    int error = replace(content, path);
    if ((error == EACCES || error == EROFS) && existing == Existing::WRONG) {
        error = overwrite(content, path);
    }
    const bool isRefusal = isRequired && existing != Existing::OTHERS && !isShortage(error);
    if (error != 0 && !isRefusal) {
        return goOnWithoutFile(path, strerror(error));
    }
    if (error != 0) {
        refuse("failed to create jar file: ", path);
        return RuntimeArchiveFile{ZString(), false};
    }
    Logger::message(ZString("Jar file created: ") + path);
    if (Descriptor(path, O_RDONLY).isOpen()) {
        return RuntimeArchiveFile{path, true};
    }
    if (!isRequired) {
        return goOnWithoutFile(path, strerror(errno));
    }
    refuse("failed to open file for reading: ", path);
    return RuntimeArchiveFile{ZString(), false};
}

RuntimeArchiveFile writeCallbackJar(const ZString& tmpDir, bool isRequired) {
    // The parts follow each other.
    ArchiveBytes content(ourCallbackJarParts[0], 0);
    for (int part = 0; part < ourCallbackJarPartCount; part++) {
        content.size += ourCallbackJarPartSizes[part];
    }
    const ZString path = (tmpDir.isEmpty() ? ZString(DEFAULT_DIRECTORY) : tmpDir) + FILE_NAME;
    // Two JVMs started together need not both write. When the lock can't be had they may: each
    // writes a whole file and the last rename wins.
    InterProcessMutex mutex(InterProcessMutex::ARCHIVE_KEY);
    InterProcessLock lock(mutex);
    if (!lock.isHeld()) {
        Logger::message("Lock of the jar file is not available, going on without it");
    }
    return writeArchiveFile(content, path, isRequired);
}
