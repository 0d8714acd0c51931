#include "client/attach/ForeignFiles.h"

#include "platform/Platform.h"

#include <algorithm>
#include <cerrno>
#include <dirent.h>
#include <fcntl.h>

namespace vdk {

Descriptor openRoot(const ProcFs& processes, int pid) {
    return Descriptor(open(processes.path(pid, "root").c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC));
}

Descriptor openRootOrOwn(const ProcFs& processes, int pid) {
    Descriptor root = openRoot(processes, pid);
    return root ? std::move(root) : Descriptor(open("/", O_PATH | O_DIRECTORY | O_CLOEXEC));
}

Descriptor openFolder(const Descriptor& root, const std::string& path) {
    return Descriptor(
        Platform::openInRoot(root.get(), path.c_str(), O_RDONLY | O_DIRECTORY | O_NONBLOCK));
}

bool belongsTo(const struct stat& info, uid_t uid) {
    return info.st_uid == uid || info.st_uid == 0;
}

static std::string readFrom(int descriptor, size_t limit) {
    std::string text;
    char buffer[8192];
    while (text.size() < limit) {
        ssize_t count = read(descriptor, buffer, std::min(sizeof(buffer), limit - text.size()));
        if (count < 0 && errno == EINTR) {
            continue;
        }
        if (count <= 0) {
            break;
        }
        text.append(buffer, size_t(count));
    }
    return text;
}

static Descriptor openOwned(const Descriptor& folder, const std::string& name, uid_t uid,
                            struct stat& info) {
    // Looked at first, as the mere opening of a device may do something, and then again.
    if (fstatat(folder.get(), name.c_str(), &info, AT_SYMLINK_NOFOLLOW) != 0 ||
        !S_ISREG(info.st_mode)) {
        return Descriptor();
    }
    Descriptor file(openat(folder.get(), name.c_str(),
                           O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_NOCTTY | O_CLOEXEC));
    if (!file || fstat(file.get(), &info) != 0 || !S_ISREG(info.st_mode) || info.st_nlink != 1 ||
        !belongsTo(info, uid)) {
        return Descriptor();
    }
    return file;
}

std::optional<std::string> readOwnedFile(const Descriptor& folder, const std::string& name,
                                         uid_t uid, size_t limit) {
    struct stat info;
    Descriptor file = openOwned(folder, name, uid, info);
    if (!file || info.st_size > off_t(limit)) {
        return std::nullopt;
    }
    return readFrom(file.get(), limit);
}

std::optional<std::string> readPlainFile(const Descriptor& root, const std::string& path,
                                         size_t limit) {
    // Looked at before it is opened, and then again.
    for (int flags : {O_PATH, O_RDONLY | O_NONBLOCK | O_NOCTTY}) {
        Descriptor file(Platform::openInRoot(root.get(), path.c_str(), flags));
        struct stat info;
        if (!file || fstat(file.get(), &info) != 0 || !S_ISREG(info.st_mode)) {
            return std::nullopt;
        }
        if (flags != O_PATH) {
            return readFrom(file.get(), limit);
        }
    }
    return std::nullopt;
}

std::optional<std::string> readOwnedTail(const Descriptor& folder, const std::string& name,
                                         uid_t uid, size_t limit) {
    struct stat info;
    Descriptor file = openOwned(folder, name, uid, info);
    if (!file || lseek(file.get(), std::max<off_t>(0, info.st_size - off_t(limit)), SEEK_SET) < 0) {
        return std::nullopt;
    }
    return readFrom(file.get(), limit);
}

void eachEntry(const Descriptor& folder, const std::function<bool(const char*)>& visitor) {
    // A descriptor of its own, as closedir takes the one it has.
    DIR* entries = fdopendir(openat(folder.get(), ".", O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    int left = 65536;
    while (dirent* entry = entries && left-- > 0 ? readdir(entries) : nullptr) {
        if (!visitor(entry->d_name)) {
            break;
        }
    }
    if (entries) {
        closedir(entries);
    }
}

} // namespace vdk
