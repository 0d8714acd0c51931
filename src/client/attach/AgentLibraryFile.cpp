#include "client/attach/AgentLibraryFile.h"

#include "client/attach/ForeignFiles.h"
#include "client/console/Errors.h"
#include "client/console/Text.h"
#include "platform/Platform.h"

#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <pwd.h>
#include <random>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <unistd.h>

namespace vdk {

static const std::string LibraryName = std::string(AgentLibraryName) + ".so";

static std::string absolutePath(const std::string& path) {
    char resolved[PATH_MAX];
    return realpath(path.c_str(), resolved) ? resolved : std::string();
}

std::string namedAgentLibrary(const std::string& given) {
    const char* variable = getenv("VDK_AGENT");
    return !given.empty() ? given : variable ? variable : "";
}

std::string findAgentLibrary(const std::string& given, ExitCode code) {
    std::string named = namedAgentLibrary(given);
    std::string hint = "name it with --agent <path> or VDK_AGENT";
    if (!named.empty()) {
        std::string path = absolutePath(named);
        if (path.empty()) {
            throw ClientError(code, "agent.missing",
                              "no agent library at " + named + ": " + strerror(errno), hint);
        }
        return path;
    }
    std::string program = absolutePath("/proc/self/exe");
    std::string folder = program.substr(0, program.rfind('/'));
    for (const char* place : {"/", "/../lib/", "/../lib/vdk/"}) {
        std::string path = absolutePath(folder + place + LibraryName);
        if (!path.empty()) {
            return path;
        }
    }
    throw ClientError(code, "agent.missing", "there is no " + LibraryName + " beside " + program,
                      hint);
}

static std::string randomSuffix() {
    std::random_device random;
    char text[20];
    snprintf(text, sizeof(text), "-%08x%08x", random(), random());
    return text;
}

// A folder of this name in `base` that is the user's own and that nobody else can write into; made
// where it is missing. Invalid (and errno tells why) otherwise.
static Descriptor openPrivate(const Descriptor& base, const std::string& name, uid_t uid) {
    if (mkdirat(base.get(), name.c_str(), 0700) != 0 && errno != EEXIST) {
        return Descriptor();
    }
    Descriptor folder(openat(base.get(), name.c_str(),
                             O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC));
    struct stat info;
    if (folder && (fstat(folder.get(), &info) != 0 || info.st_uid != uid ||
                   (info.st_mode & (S_IWGRP | S_IWOTH)) != 0)) {
        errno = EEXIST;
        return Descriptor();
    }
    return folder;
}

// The user's private folder in `base`: the usual one or, where that is somebody else's, a new one.
static Descriptor openPrivate(const Descriptor& base, uid_t uid, std::string& name) {
    name = "vdk-" + std::to_string(uid);
    Descriptor folder = openPrivate(base, name, uid);
    bool taken =
        !folder && (errno == EEXIST || errno == ELOOP || errno == ENOTDIR || errno == EACCES);
    if (taken) {
        name += randomSuffix();
        folder = openPrivate(base, name, uid);
    }
    return folder;
}

std::string ownPrivateDirectory() {
    const char* runtime = getenv("XDG_RUNTIME_DIR");
    struct stat info;
    bool usable = runtime && runtime[0] == '/' && stat(runtime, &info) == 0 &&
                  S_ISDIR(info.st_mode) && info.st_uid == geteuid();
    std::string base = usable ? runtime : "/tmp";
    std::string name;
    Descriptor parent(open(base.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    if (!parent || !openPrivate(parent, geteuid(), name)) {
        throw ClientError(ExitCode::CannotWrite, "tmpdir",
                          "there can be no private folder in " + base + ": " + strerror(errno),
                          "name a folder of your own: tmpdir=<folder>");
    }
    return base + "/" + name;
}

// The home folder of the process's user, by the password file that the process sees.
static std::string homeOf(const Descriptor& root, const ProcessStatus& target) {
    Descriptor folder = openFolder(root, "/etc");
    auto text = folder ? readOwnedFile(folder, "passwd", 0) : std::nullopt;
    for (const std::string& line : split(text.value_or(""), '\n')) {
        std::vector<std::string> fields = split(line, ':');
        if (fields.size() > 5 && fields[2] == std::to_string(target.euid)) {
            return fields[5];
        }
    }
    passwd* entry = getpwuid(target.euid);
    return entry ? entry->pw_dir : "";
}

std::string refusalInLog(const ProcFs& processes, const ProcessStatus& target) {
    static const char mark[] = "Cannot start: ";
    Descriptor root = openRootOrOwn(processes, target.pid);
    Descriptor folder = openFolder(root, homeOf(root, target) + "/.vdk/log");
    auto text = folder ? readOwnedTail(folder, std::to_string(target.namespacePid) + ".log",
                                       target.euid, 64 << 10)
                       : std::nullopt;
    size_t at = text ? text->rfind(mark) : std::string::npos;
    if (at == std::string::npos) {
        return {};
    }
    at += sizeof(mark) - 1;
    return printable(text->substr(at, text->find('\n', at) - at), 500);
}

// Adds the private folder in the target's `base`, if the target's user can write there.
bool AttachFiles::addPlace(const std::string& base) {
    Descriptor parent = openFolder(root, base);
    std::string name;
    Descriptor folder = parent ? openPrivate(parent, target.euid, name) : Descriptor();
    struct statvfs space;
    if (!folder || fstatvfs(folder.get(), &space) != 0 || (space.f_flag & ST_RDONLY) != 0) {
        return false;
    }
    bool executable = (space.f_flag & ST_NOEXEC) == 0;
    places.push_back({std::move(folder), base + "/" + name, executable});
    return true;
}

AttachFiles::AttachFiles(const ProcFs& processes, const ProcessStatus& target,
                         const std::string& userFolder)
    : target(target), shared(processes.sharesFiles(target.pid)),
      root(openRootOrOwn(processes, target.pid)) {
    TargetCredentials credentials(target.euid, target.egid);
    std::vector<std::string> bases = {"/tmp", "/var/tmp", "/dev/shm"};
    const char* runtime = getenv("XDG_RUNTIME_DIR");
    if (shared && target.euid == geteuid() && runtime && runtime[0] == '/') {
        bases.insert(bases.begin(), runtime);
    }
    if (!userFolder.empty()) {
        bases.insert(bases.begin(), userFolder);
    }
    bool enough = false;
    for (size_t i = 0; i < bases.size() && !enough; i++) {
        enough = addPlace(bases[i]) && places.back().executable;
    }
    if (places.empty()) {
        throw ClientError(ExitCode::AttachRefused, "attach.file",
                          "the JVM's user can write into none of its folders " + join(bases, ", "),
                          "start the program with the agent instead: `vdk run -- java ...`");
    }
}

AttachFiles::~AttachFiles() {
    if (created.empty()) {
        return;
    }
    TargetCredentials credentials(target.euid, target.egid);
    for (const Created& file : created) {
        unlinkat(file.place->folder.get(), file.name.c_str(), 0);
    }
}

std::string AttachFiles::create(const Place& place, const std::string& name,
                                const std::string& bytes) {
    TargetCredentials credentials(target.euid, target.egid);
    unlinkat(place.folder.get(), name.c_str(), 0);
    int descriptor = openat(place.folder.get(), name.c_str(),
                            O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0600);
    size_t written = 0;
    if (descriptor >= 0) {
        created.push_back({&place, name});
        while (written < bytes.size()) {
            ssize_t count = write(descriptor, bytes.data() + written, bytes.size() - written);
            if (count < 0 && errno == EINTR) {
                continue;
            }
            if (count <= 0) {
                break;
            }
            written += size_t(count);
        }
        if (close(descriptor) != 0) {
            written = 0;
        }
    }
    if (descriptor < 0 || written < bytes.size()) {
        throw ClientError(ExitCode::CannotWrite, "tmpdir",
                          "cannot write " + place.path + "/" + name +
                              " of the target: " + strerror(errno));
    }
    return place.path + "/" + name;
}

bool AttachFiles::hasOwnLibrary(const std::string& named) const {
    if (shared || named.empty() || named[0] != '/') {
        return false;
    }
    TargetCredentials credentials(target.euid, target.egid);
    Descriptor file(Platform::openInRoot(root.get(), named.c_str(), O_RDONLY | O_NONBLOCK));
    struct stat info;
    return file && fstat(file.get(), &info) == 0 && S_ISREG(info.st_mode);
}

std::string AttachFiles::provideLibrary(const std::string& path) {
    if (shared) {
        TargetCredentials credentials(target.euid, target.egid);
        if (faccessat(AT_FDCWD, path.c_str(), R_OK, AT_EACCESS) == 0) {
            return path;
        }
    }
    auto bytes = readSmallFile(path, 256 << 20);
    if (!bytes) {
        throw ClientError(ExitCode::AttachRefused, "agent.missing",
                          "cannot read " + path + ": " + strerror(errno));
    }
    const Place& place = places.back();
    if (!place.executable) {
        throw ClientError(ExitCode::AttachRefused, "agent.noexec",
                          "no folder of the target is writable and allows programs (" +
                              places.front().path + " is mounted noexec)",
                          "put the library into the target's own files and name it, as the target "
                          "sees it, with --agent");
    }
    return create(place, AgentLibraryName + ("-" + std::to_string(getpid())) + ".so", *bytes);
}

std::string AttachFiles::reserve(const std::string& name) {
    TargetCredentials credentials(target.euid, target.egid);
    const Place& place = places.front();
    unlinkat(place.folder.get(), name.c_str(), 0);
    created.push_back({&place, name});
    return place.path + "/" + name;
}

Descriptor AttachFiles::openReserved(const std::string& path) const {
    TargetCredentials credentials(target.euid, target.egid);
    std::string name = path.substr(path.rfind('/') + 1);
    return Descriptor(openat(places.front().folder.get(), name.c_str(),
                             O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_NOCTTY | O_CLOEXEC));
}

std::string AttachFiles::provideText(const std::string& name, const std::string& text) {
    return create(places.front(), name + "-" + std::to_string(getpid()), text);
}

} // namespace vdk
