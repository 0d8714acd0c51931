// The JVMs of this machine: the profiled ones by the marker area, the others by the JVM's own files
// and by the libraries that processes map.
#pragma once

#include "client/agent/Connection.h"
#include "client/attach/ProcFs.h"
#include "client/console/Descriptor.h"

#include <functional>
#include <map>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace vdk {

// A record of the marker area. The area is writable by everybody: nothing in it is trusted before
// it was compared with the process.
struct ProfiledMarker {
    int pid = 0;
    int port = 0;
    std::string session;
    unsigned long pidNamespace = 0; // that the id is of; 0 if it is not known
};

// The markers of profiled processes. The seam to the shared memory segment; tests replace it.
class MarkerSource {
public:
    virtual ~MarkerSource() = default;
    // Those of the area that this process shares.
    virtual std::vector<ProfiledMarker> read();
    // Those of the area in the namespace that the descriptor stands for. Nothing if this process
    // may not enter it.
    std::optional<std::vector<ProfiledMarker>> readIn(const Descriptor& ipcNamespace);
};

struct Jvm {
    int pid = 0;
    int namespacePid = 0;
    long uid = -1;
    std::string user;
    std::string mainName;    // main class or JAR file, as on the command line; "" if unknown
    std::string arguments;   // the rest of the Java command
    std::string javaVersion; // "" if unknown
    std::string vmArguments;
    JvmKind kind = JvmKind::HotSpot;
    int port = 0; // 0: not profiled
    std::string session;
    std::string host = "127.0.0.1"; // where the port is
    bool ownNetwork = false;        // and it is in another network namespace
    bool markersHidden = false;     // its shared memory may not be looked at from here
    unsigned long dataFile = 0;     // see PerformanceData::file

    bool isProfiled() const { return port != 0; }
    // The word people know it by: class name without package, JAR without folder.
    std::string shortName() const;
};

// A command line that reaches, or finds, the agent of a JVM from within its namespaces.
std::string fromInside(const ProcFs& processes, const Jvm& jvm);

class JvmFinder {
public:
    // Asks what listens on the port of a JVM for the session name of its agent; nothing if it is
    // none. By this an agent without a marker is found, where the area was full for one.
    using Asker = std::function<std::optional<std::string>(const Jvm&)>;

    JvmFinder(const ProcFs& processes, MarkerSource& markers, Asker asker = {})
        : processes(processes), markers(markers), asker(std::move(asker)) {}

    // All JVMs, by process id.
    std::vector<Jvm> findAll();

    // The one of this process id; nothing if it is no JVM that can be seen.
    std::optional<Jvm> look(int pid);

    // The one JVM that `target` names: a process id, or part of the main class, JAR or session
    // name, letters compared without case. Throws ClientError NoTarget: "target.none",
    // "target.several" (the message lists them).
    Jvm find(const std::string& target);

private:
    bool describe(int pid, Jvm& jvm, bool usePerformanceData = true);
    void assignMarkers(std::vector<Jvm>& jvms);
    // The JVMs of one IPC namespace, with its markers.
    void assignMarkers(const std::vector<Jvm*>& jvms, const std::vector<ProfiledMarker>& found);
    void findUnmarked(std::vector<Jvm>& jvms);
    void askPorts(Jvm& jvm);

    const ProcFs& processes;
    MarkerSource& markers;
    Asker asker;
    std::map<std::pair<int, int>, std::optional<std::string>> answers; // by process id and port
};

// The main class or JAR file in the arguments of a java launcher, and the index behind it in
// `next`. Empty if the arguments name none.
std::string findMainArgument(const std::vector<std::string>& commandLine, size_t& next);

// ":10005", "host:10005" or "[::1]:10005" as an address; false for anything else. A bare number is
// no address but a process id.
bool parseEndpoint(const std::string& text, Endpoint& endpoint);

} // namespace vdk
