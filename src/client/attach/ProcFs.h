// What the client reads about other processes from Linux's procfs. The root folder is a parameter,
// so that tests can lay out processes of their own. Where there is none, on another system for one,
// the processes, their users and command lines come from the system itself, and nothing else is
// known.
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

// How a listening process can be reached.
struct Listening {
    std::string host;        // "" if it does not listen
    bool ownNetwork = false; // its port is in another network namespace than this process
    explicit operator bool() const { return !host.empty(); }
};

// How the names of the agent's library and of its copies begin.
constexpr char AgentLibraryName[] = "libvdkagent";

enum class JvmKind { None, HotSpot, OpenJ9 };

// A row of the kernel's table of TCP sockets.
struct ListeningSocket {
    std::string address; // "127.0.0.1", "0.0.0.0", "::"
    uid_t uid = 0;
    std::string inode;
};

class ProcFs {
public:
    explicit ProcFs(std::string folder = SystemRoot);

    std::vector<int> pids() const;
    std::optional<ProcessStatus> status(int pid) const;
    std::vector<std::string> commandLine(int pid) const;

    // By the libraries that the process maps; None as well when the map may not be read.
    JvmKind jvmKind(int pid) const;
    // The map may be read, so that "no JVM" is certain.
    bool canInspect(int pid) const;
    // The process maps the agent's library, or a copy of it that an attach has made.
    bool mapsAgent(int pid) const;
    // Its path as the process sees it, which may no longer lead to the file; "" if it maps none.
    std::string mappedAgent(int pid) const;
    // The process maps musl's loader: a library built for glibc cannot be loaded there.
    bool usesMusl(int pid) const;

    // Whether the process itself listens on the TCP port, by the kernel's word: the socket is among
    // its descriptors or, where those may not be looked at, belongs to its user.
    Listening listening(const ProcessStatus& process, int port) const;

    // A number that two processes share that are in the same namespace of a kind ("net", "ipc",
    // ...); 0 where this may not be known.
    unsigned long namespaceId(int pid, const char* kind) const;
    unsigned long ownNamespaceId(const char* kind) const;

    // False when the target sees other files under the same names than this process: another
    // mount namespace, or another root folder.
    bool sharesFiles(int pid) const;

    // "<root>/<pid>/<name>": a file of the target's procfs folder.
    std::string path(int pid, const std::string& name) const;
    // How this process reaches a file that the target calls `path`.
    std::string inTarget(int pid, const std::string& path) const;

private:
    bool mapsFile(int pid, const char* const* names, size_t count) const;
    std::vector<ListeningSocket> listeners(const std::string& process, int port) const;
    bool holdsSocket(const ProcessStatus& process, const ListeningSocket& socket) const;

    static constexpr const char* SystemRoot = "/proc";

    std::string root;
    bool hasFiles;
};

// The whole file, at most `limit` bytes; nothing if it cannot be read (errno tells why). For files
// of the system and of this user only: see ForeignFiles.h for others.
std::optional<std::string> readSmallFile(const std::string& path, size_t limit = 1 << 20);

} // namespace vdk
