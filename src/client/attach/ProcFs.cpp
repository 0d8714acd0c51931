#include "client/attach/ProcFs.h"

#include "client/console/Text.h"

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <dirent.h>
#include <fcntl.h>
#include <set>
#include <sstream>
#include <sys/stat.h>
#include <unistd.h>

namespace vdk {

std::optional<std::string> readSmallFile(const std::string& path, size_t limit, bool noFollow) {
    int descriptor = open(path.c_str(), O_RDONLY | O_CLOEXEC | (noFollow ? O_NOFOLLOW : 0));
    if (descriptor < 0) {
        return std::nullopt;
    }
    std::string text;
    char buffer[8192];
    while (text.size() < limit) {
        ssize_t count = ::read(descriptor, buffer, std::min(sizeof(buffer), limit - text.size()));
        if (count < 0 && errno == EINTR) {
            continue;
        }
        if (count < 0 && text.empty()) {
            int error = errno;
            close(descriptor);
            errno = error;
            return std::nullopt;
        }
        if (count <= 0) {
            break;
        }
        text.append(buffer, size_t(count));
    }
    close(descriptor);
    return text;
}

std::vector<int> ProcFs::pids() const {
    std::vector<int> result;
    DIR* folder = opendir(root.c_str());
    if (!folder) {
        return result;
    }
    while (dirent* entry = readdir(folder)) {
        if (auto pid = parseNumber(entry->d_name, 1, INT32_MAX)) {
            result.push_back(static_cast<int>(*pid));
        }
    }
    closedir(folder);
    std::sort(result.begin(), result.end());
    return result;
}

std::string ProcFs::path(int pid, const std::string& name) const {
    return root + "/" + std::to_string(pid) + "/" + name;
}

std::string ProcFs::inTarget(int pid, const std::string& file) const {
    return path(pid, "root") + file;
}

std::optional<ProcessStatus> ProcFs::status(int pid) const {
    auto text = readSmallFile(path(pid, "status"));
    if (!text) {
        return std::nullopt;
    }
    ProcessStatus result;
    result.pid = result.namespacePid = pid;
    for (const std::string& line : split(*text, '\n')) {
        size_t colon = line.find(':');
        if (colon == std::string::npos) {
            continue;
        }
        std::string name = line.substr(0, colon);
        std::vector<std::string> words;
        for (const std::string& word : split(line.substr(colon + 1), '\t')) {
            if (!word.empty()) {
                words.push_back(word);
            }
        }
        if (words.empty()) {
            continue;
        }
        if (name == "State") {
            result.state = words[0].substr(0, 1);
        } else if (name == "NSpid") {
            result.namespacePid = atoi(words.back().c_str());
        } else if (name == "Uid" && words.size() > 1) {
            result.euid = static_cast<uid_t>(strtoul(words[1].c_str(), nullptr, 10));
        } else if (name == "Gid" && words.size() > 1) {
            result.egid = static_cast<gid_t>(strtoul(words[1].c_str(), nullptr, 10));
        } else if (name == "SigCgt") {
            result.catchesQuit = (strtoull(words[0].c_str(), nullptr, 16) >> (SIGQUIT - 1)) & 1;
        }
    }
    return result;
}

std::vector<std::string> ProcFs::commandLine(int pid) const {
    auto text = readSmallFile(path(pid, "cmdline"));
    if (!text || text->empty()) {
        return {};
    }
    if (text->back() == '\0') {
        text->pop_back();
    }
    return split(*text, '\0');
}

bool ProcFs::mapsFile(int pid, const char* const* names, size_t count) const {
    auto text = readSmallFile(path(pid, "maps"), 64 << 20);
    if (!text) {
        return false;
    }
    for (size_t i = 0; i < count; i++) {
        if (text->find(names[i]) != std::string::npos) {
            return true;
        }
    }
    return false;
}

JvmKind ProcFs::jvmKind(int pid) const {
    static const char* const openJ9[] = {"/libj9vm", "/libj9jit"};
    static const char* const hotSpot[] = {"/libjvm.so"};
    if (mapsFile(pid, openJ9, 2)) {
        return JvmKind::OpenJ9;
    }
    return mapsFile(pid, hotSpot, 1) ? JvmKind::HotSpot : JvmKind::None;
}

bool ProcFs::canInspect(int pid) const {
    auto text = readSmallFile(path(pid, "maps"), 1);
    return text && !text->empty();
}

bool ProcFs::usesMusl(int pid) const {
    static const char* const musl[] = {"/ld-musl-", "/libc.musl-"};
    return mapsFile(pid, musl, 2);
}

// Inodes of the sockets that listen on the port, from lines such as
// "0: 0100007F:2711 00000000:0000 0A 00000000:00000000 00:00000000 00000000 0 0 12345 1 ...".
static void addListeners(const std::string& table, int port, std::set<std::string>& inodes) {
    for (const std::string& line : split(table, '\n')) {
        std::istringstream words(line);
        std::string slot, local, remote, state, skipped, inode;
        words >> slot >> local >> remote >> state;
        for (int i = 0; i < 5; i++) {
            words >> skipped;
        }
        words >> inode;
        size_t colon = local.find(':');
        if (!words || state != "0A" || colon == std::string::npos) {
            continue;
        }
        if (strtol(local.c_str() + colon + 1, nullptr, 16) == port) {
            inodes.insert("socket:[" + inode + "]");
        }
    }
}

bool ProcFs::listensOn(int pid, int port) const {
    std::set<std::string> inodes;
    for (const char* table : {"net/tcp", "net/tcp6"}) {
        addListeners(readSmallFile(path(pid, table), 16 << 20).value_or(""), port, inodes);
    }
    DIR* folder = inodes.empty() ? nullptr : opendir(path(pid, "fd").c_str());
    bool found = false;
    while (dirent* entry = folder && !found ? readdir(folder) : nullptr) {
        char target[64];
        ssize_t length = readlinkat(dirfd(folder), entry->d_name, target, sizeof(target));
        found = length > 0 && inodes.count(std::string(target, size_t(length))) != 0;
    }
    if (folder) {
        closedir(folder);
    }
    return found;
}

bool ProcFs::sharesFiles(int pid) const {
    struct stat own, other;
    if (stat((root + "/self/ns/mnt").c_str(), &own) == 0 &&
        stat(path(pid, "ns/mnt").c_str(), &other) == 0 &&
        (own.st_ino != other.st_ino || own.st_dev != other.st_dev)) {
        return false;
    }
    if (stat("/", &own) == 0 && stat(path(pid, "root/").c_str(), &other) == 0) {
        return own.st_ino == other.st_ino && own.st_dev == other.st_dev;
    }
    return true;
}

} // namespace vdk
