#include "client/attach/ProcFs.h"

#include "client/console/Text.h"
#include "platform/Platform.h"

#include <algorithm>
#include <arpa/inet.h>
#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <dirent.h>
#include <fcntl.h>
#include <sstream>
#include <sys/stat.h>
#include <unistd.h>

namespace vdk {

std::optional<std::string> readSmallFile(const std::string& path, size_t limit) {
    int descriptor = open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY);
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

// What the system itself tells, for one that has no procfs, or has not mounted it.
static bool addProcess(int pid, void* pids) {
    static_cast<std::vector<int>*>(pids)->push_back(pid);
    return true;
}

static void addArgument(const char* argument, void* arguments) {
    static_cast<std::vector<std::string>*>(arguments)->push_back(argument);
}

static std::optional<ProcessStatus> statusWithoutProcFs(int pid) {
    long user = Platform::isRunning(pid) ? Platform::processUser(pid) : -1;
    if (user < 0) {
        return std::nullopt;
    }
    ProcessStatus result;
    result.pid = result.namespacePid = pid;
    result.euid = static_cast<uid_t>(user);
    result.state = "S";
    return result;
}

// Other systems' files of these names, where there are any, say something else.
ProcFs::ProcFs(std::string folder)
    : root(std::move(folder)),
      hasFiles(access(root.c_str(), F_OK) == 0 &&
               (root != SystemRoot || strcmp(Platform::name(), "Linux") == 0)) {}

std::vector<int> ProcFs::pids() const {
    std::vector<int> result;
    DIR* folder = hasFiles ? opendir(root.c_str()) : nullptr;
    while (dirent* entry = folder ? readdir(folder) : nullptr) {
        if (auto pid = parseNumber(entry->d_name, 1, INT32_MAX)) {
            result.push_back(static_cast<int>(*pid));
        }
    }
    if (folder) {
        closedir(folder);
    }
    if (!hasFiles) {
        Platform::listProcesses(addProcess, &result);
    }
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
    if (!hasFiles) {
        return statusWithoutProcFs(pid);
    }
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
    if (!hasFiles) {
        std::vector<std::string> arguments;
        Platform::processArguments(pid, addArgument, &arguments);
        return arguments;
    }
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

bool ProcFs::mapsAgent(int pid) const {
    static const std::string part = std::string("/") + AgentLibraryName;
    const char* const names[] = {part.c_str()};
    return mapsFile(pid, names, 1);
}

std::string ProcFs::mappedAgent(int pid) const {
    const std::string name = std::string("/") + AgentLibraryName;
    const std::string deleted = " (deleted)";
    std::string maps = readSmallFile(path(pid, "maps"), 64 << 20).value_or("");
    for (const std::string& line : split(maps, '\n')) {
        size_t start = line.find('/');
        if (start == std::string::npos || line.rfind(name) != line.rfind('/')) {
            continue;
        }
        std::string file = line.substr(start);
        return endsWith(file, deleted) ? file.substr(0, file.size() - deleted.size()) : file;
    }
    return "";
}

bool ProcFs::usesMusl(int pid) const {
    static const char* const musl[] = {"/ld-musl-", "/libc.musl-"};
    return mapsFile(pid, musl, 2);
}

// An address of the table: words of 32 bits in hexadecimal, each in the byte order of the machine.
static std::string addressText(const std::string& hexadecimal) {
    unsigned char bytes[16] = {};
    size_t words = hexadecimal.size() / 8;
    if (words != 1 && words != 4) {
        return {};
    }
    for (size_t i = 0; i < words; i++) {
        auto word = uint32_t(strtoul(hexadecimal.substr(i * 8, 8).c_str(), nullptr, 16));
        memcpy(bytes + 4 * i, &word, sizeof(word));
    }
    static const unsigned char mapped[12] = {0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0xff, 0xff};
    bool isMapped = words == 4 && memcmp(bytes, mapped, sizeof(mapped)) == 0;
    bool isV6 = words == 4 && !isMapped;
    char text[INET6_ADDRSTRLEN];
    const unsigned char* start = isMapped ? bytes + sizeof(mapped) : bytes;
    return inet_ntop(isV6 ? AF_INET6 : AF_INET, start, text, sizeof(text)) ? text : "";
}

// The sockets that listen on the port in the network of a process, from lines such as
// "0: 0100007F:2711 00000000:0000 0A 00000000:00000000 00:00000000 00000000 <uid> 0 <inode> ...".
std::vector<ListeningSocket> ProcFs::listeners(const std::string& process, int port) const {
    std::vector<ListeningSocket> result;
    std::string text;
    for (const char* table : {"/net/tcp", "/net/tcp6"}) {
        text += readSmallFile(root + "/" + process + table, 16 << 20).value_or("") + "\n";
    }
    for (const std::string& line : split(text, '\n')) {
        std::istringstream words(line);
        std::string slot, local, remote, state, skipped;
        ListeningSocket socket;
        words >> slot >> local >> remote >> state >> skipped >> skipped >> skipped >> socket.uid >>
            skipped >> socket.inode;
        size_t colon = local.find(':');
        if (!words || state != "0A" || colon == std::string::npos ||
            strtol(local.c_str() + colon + 1, nullptr, 16) != port) {
            continue;
        }
        socket.address = addressText(local.substr(0, colon));
        result.push_back(socket);
    }
    return result;
}

bool ProcFs::holdsSocket(const ProcessStatus& process, const ListeningSocket& socket) const {
    DIR* folder = opendir(path(process.pid, "fd").c_str());
    if (!folder) {
        return errno == EACCES && socket.uid == process.euid;
    }
    bool found = false;
    std::string wanted = "socket:[" + socket.inode + "]";
    while (dirent* entry = !found ? readdir(folder) : nullptr) {
        char target[64];
        ssize_t length = readlinkat(dirfd(folder), entry->d_name, target, sizeof(target));
        found = length > 0 && std::string(target, size_t(length)) == wanted;
    }
    closedir(folder);
    return found;
}

// Where to dial for a socket that is bound to this address: on this machine if it listens there.
static std::string dialAddress(const std::string& address) {
    return address == "0.0.0.0" || address == "::" ? "127.0.0.1" : address;
}

Listening ProcFs::listening(const ProcessStatus& process, int port) const {
    if (!hasFiles) {
        return {"127.0.0.1", false}; // not to be known here: what the agent says of itself must do
    }
    std::vector<ListeningSocket> all = listeners(std::to_string(process.pid), port);
    std::vector<ListeningSocket> own;
    for (const ListeningSocket& socket : all) {
        if (!socket.address.empty() && holdsSocket(process, socket)) {
            own.push_back(socket);
        }
    }
    Listening result;
    for (const ListeningSocket& socket : own) {
        std::string host = dialAddress(socket.address);
        // Another process must not answer in this one's place.
        bool contested = std::any_of(all.begin(), all.end(), [&](const ListeningSocket& other) {
            return other.inode != socket.inode && dialAddress(other.address) == host &&
                   !holdsSocket(process, other);
        });
        if (!contested && (result.host.empty() || host == "127.0.0.1")) {
            std::vector<ListeningSocket> ours = listeners("self", port);
            result.host = host;
            result.ownNetwork =
                std::none_of(ours.begin(), ours.end(), [&](const ListeningSocket& other) {
                    return other.inode == socket.inode;
                });
        }
    }
    return result;
}

static unsigned long inodeOf(const std::string& path) {
    struct stat info;
    return stat(path.c_str(), &info) == 0 ? info.st_ino : 0;
}

unsigned long ProcFs::namespaceId(int pid, const char* kind) const {
    return inodeOf(path(pid, std::string("ns/") + kind));
}

unsigned long ProcFs::ownNamespaceId(const char* kind) const {
    return inodeOf(root + "/self/ns/" + kind);
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
