#include "client/attach/AgentLibraryFile.h"

#include "client/console/Errors.h"
#include "client/console/Text.h"

#include <cerrno>
#include <climits>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace vdk {

static const char LibraryName[] = "libvdkagent.so";

static std::string absolutePath(const std::string& path) {
    char resolved[PATH_MAX];
    return realpath(path.c_str(), resolved) ? resolved : std::string();
}

std::string findAgentLibrary(const std::string& given, ExitCode code) {
    const char* variable = getenv("VDK_AGENT");
    std::string named = !given.empty() ? given : variable ? variable : "";
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
    throw ClientError(code, "agent.missing",
                      std::string("there is no ") + LibraryName + " beside " + program, hint);
}

std::string makePrivateDirectory(const std::string& base, uid_t uid) {
    std::string path = base + "/vdk-" + std::to_string(uid);
    auto fail = [&](const std::string& reason) {
        throw ClientError(ExitCode::CannotWrite, "tmpdir", path + " " + reason,
                          "remove it, or name another folder: tmpdir=<folder>");
    };
    if (mkdir(path.c_str(), 0700) != 0 && errno != EEXIST) {
        fail(std::string("cannot be made: ") + strerror(errno));
    }
    struct stat info;
    if (lstat(path.c_str(), &info) != 0) {
        fail(std::string("cannot be looked at: ") + strerror(errno));
    }
    if (!S_ISDIR(info.st_mode)) {
        fail("is no folder");
    }
    if (info.st_uid != uid) {
        fail("belongs to another user");
    }
    if (info.st_mode & (S_IWGRP | S_IWOTH)) {
        fail("can be written by other users");
    }
    return path;
}

std::string ownPrivateDirectory() {
    const char* runtime = getenv("XDG_RUNTIME_DIR");
    struct stat info;
    if (runtime && runtime[0] == '/' && stat(runtime, &info) == 0 && S_ISDIR(info.st_mode) &&
        info.st_uid == geteuid()) {
        return makePrivateDirectory(runtime, geteuid());
    }
    return makePrivateDirectory("/tmp", geteuid());
}

AttachFiles::AttachFiles(const ProcFs& processes, const ProcessStatus& target)
    : target(target), shared(processes.sharesFiles(target.pid)) {
    if (shared && target.euid == geteuid()) {
        folder = ownPrivateDirectory();
        return;
    }
    TargetCredentials credentials(target.euid, target.egid);
    prefix = shared ? "" : processes.inTarget(target.pid, "");
    makePrivateDirectory(prefix + "/tmp", target.euid);
    folder = "/tmp/vdk-" + std::to_string(target.euid);
}

AttachFiles::~AttachFiles() {
    if (created.empty()) {
        return;
    }
    TargetCredentials credentials(target.euid, target.egid);
    for (const std::string& path : created) {
        unlink(path.c_str());
    }
}

std::string AttachFiles::create(const std::string& name, const std::string& bytes) {
    TargetCredentials credentials(target.euid, target.egid);
    std::string visible = folder + "/" + name;
    std::string path = prefix + visible;
    unlink(path.c_str());
    int descriptor = open(path.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0600);
    size_t written = 0;
    if (descriptor >= 0) {
        created.push_back(path);
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
                          "cannot write " + path + ": " + strerror(errno));
    }
    return visible;
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
    return create(std::string("agent-") + std::to_string(getpid()) + ".so", *bytes);
}

std::string AttachFiles::provideText(const std::string& name, const std::string& text) {
    return create(name + "-" + std::to_string(getpid()), text);
}

} // namespace vdk
