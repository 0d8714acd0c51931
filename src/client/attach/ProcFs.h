// What the client reads about other processes from procfs. The root folder is a parameter, so that
// tests can lay out processes of their own.
#pragma once

#include <optional>
#include <string>
#include <sys/types.h>
#include <vector>

namespace vdk {

// Identity of a process, as its status file tells it.
struct ProcessStatus {
    int pid = 0;
    int namespacePid = 0; // its id in its own innermost pid namespace
    uid_t euid = 0;
    gid_t egid = 0;
    bool catchesQuit = false; // SIGQUIT has a handler: the JVM is ready for it
    std::string state;
};

enum class JvmKind { None, HotSpot, OpenJ9 };

class ProcFs {
public:
    explicit ProcFs(std::string root = "/proc") : root(std::move(root)) {}

    std::vector<int> pids() const;
    std::optional<ProcessStatus> status(int pid) const;
    std::vector<std::string> commandLine(int pid) const;

    // By the libraries that the process maps; None as well when the map may not be read.
    JvmKind jvmKind(int pid) const;
    // The map may be read, so that "no JVM" is certain.
    bool canInspect(int pid) const;
    // The process maps musl's loader: a library built for glibc cannot be loaded there.
    bool usesMusl(int pid) const;

    // True when the process itself listens on the TCP port, in its own network namespace. False too
    // when its descriptors may not be looked at.
    bool listensOn(int pid, int port) const;

    // False when the target sees other files under the same names than this process: another
    // mount namespace, or another root folder.
    bool sharesFiles(int pid) const;

    // "<root>/<pid>/<name>": a file of the target's procfs folder.
    std::string path(int pid, const std::string& name) const;
    // How this process reaches a file that the target calls `path`.
    std::string inTarget(int pid, const std::string& path) const;

private:
    bool mapsFile(int pid, const char* const* names, size_t count) const;

    std::string root;
};

// The whole file, at most `limit` bytes; nothing if it cannot be read
// (errno tells why). Follows no link in its last
// component when `noFollow` is set.
std::optional<std::string> readSmallFile(const std::string& path, size_t limit = 1 << 20,
                                         bool noFollow = false);

} // namespace vdk
