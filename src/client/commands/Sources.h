// What a command works on: a live agent, or the tables of a snapshot file or of an agent.
#pragma once

#include "client/agent/AgentClient.h"
#include "client/attach/JvmList.h"
#include "client/commands/Command.h"

#include <memory>
#include <optional>
#include <string>

namespace vdk {

// Everything that this machine's JVMs are found by.
class Machine {
public:
    Machine() = default;
    Machine(const Machine&) = delete;
    Machine& operator=(const Machine&) = delete;

    ProcFs processes;
    MarkerSource markers;
    JvmFinder finder{processes, markers, [this](const Jvm& jvm) { return askForAgent(jvm); }};

    // How long a port is given to answer as an agent. Short where many JVMs are looked at.
    int patienceMs = 2000;

private:
    std::optional<std::string> askForAgent(const Jvm& jvm) const;
};

// Looks at the JVM until its agent is seen, for some seconds: the agent may just be starting, and
// what the system tells of sockets is not of one moment. The JVM with its port then; without, if
// none comes.
Jvm awaitMarker(JvmFinder& finder, const Jvm& jvm);

// The agent of a JVM or address, checked to be the one that was meant. Throws ClientError NoTarget
// "target.unprofiled" for a JVM without agent, "target.hidden" and "target.network" for one that
// cannot be reached from here; AgentFailed "target.stopped", and "target.foreign" when another
// process answers on the port.
struct LiveAgent {
    AgentClient client;
    AgentInfo info; // with the process id as this machine sees it, unless an address was given
    int64_t status = 0;
};
LiveAgent connectAgent(const std::string& target, const Arguments& arguments);
LiveAgent connectAgent(const Machine& machine, const Jvm& jvm, int timeoutMs);
// The same for a JVM that need not have an agent yet: it gets one, as `vdk attach` loads it.
LiveAgent attachedAgent(Machine& machine, const std::string& target, const Arguments& arguments);

// Tells that a command without data of its own was done: a note, or the object {"schema":...,
// "pid":..., "session":..., "done":...}.
void writeDone(Console& console, const char* schema, const LiveAgent& agent, const char* what,
               const std::optional<AgentClient::PreparedClasses>& prepared = std::nullopt);

// Has the classes rewritten that a recording needs (protocol::RECORDING_TRACES ...), with a bar
// on a terminal. Nothing where they always carry its calls; patterns are refused then.
std::optional<AgentClient::PreparedClasses>
prepareClasses(Console& console, LiveAgent& agent, int recording,
               const std::vector<std::string>& only = {},
               const std::optional<std::string>& filters = std::nullopt);

// A database to report on.
struct DataSource {
    std::string name; // file or target, as given
    std::string session;
    int64_t captureTimeMs = 0; // 0 for a live agent
    bool live = false;
    int64_t status = 0; // of a live agent

    DB& database() { return fetcher ? fetcher->database() : *owned; }

    std::unique_ptr<DB> owned;
    std::unique_ptr<AgentClient> client;
    std::unique_ptr<TableFetcher> fetcher;
};

// True when the text names a file: one that exists, or a path with a slash or an ending of ours.
bool namesFile(const std::string& text);

// Reads a performance snapshot, or the tables in the mask from a live agent, and on demand those
// that its probes made. Throws ClientError
// BadInput "snapshot.data" with table, row and field for a damaged file, Usage "input.open" for one
// that cannot be opened, "snapshot.heapdump" for a heap dump.
DataSource openData(const std::string& fileOrTarget, const Arguments& arguments, int mask,
                    bool withUserTables = false);

// Tables that CPU reports read.
constexpr int CpuTables = 1 << SLOT_String | 1 << SLOT_Thread | 1 << SLOT_Method |
                          1 << SLOT_ThreadFrame | 1 << SLOT_CPUProfiling | 1 << SLOT_Frame |
                          1 << SLOT_TableGeneration | 1 << SLOT_J2EE | 1 << SLOT_Property;
// Beside those of CPU reports, for their stacks and threads.
constexpr int AllocationTables = 1 << SLOT_AllocInfo | 1 << SLOT_Property;
constexpr int MonitorTables = 1 << SLOT_Monitor | 1 << SLOT_Property;
constexpr int ExceptionTables = 1 << SLOT_Exception;
// Beside the user tables.
constexpr int ProbeStackTables = 1 << SLOT_String | 1 << SLOT_Thread | 1 << SLOT_Method |
                                 1 << SLOT_ThreadFrame | 1 << SLOT_Frame | 1 << SLOT_Property;
constexpr int TelemetryTables =
    1 << SLOT_String | 1 << SLOT_Property | 1 << SLOT_Telemetry | 1 << SLOT_TelemetryExt;
constexpr int ThreadTables = 1 << SLOT_String | 1 << SLOT_Thread | 1 << SLOT_Method |
                             1 << SLOT_Frame | 1 << SLOT_Telemetry | 1 << SLOT_ThreadState;

} // namespace vdk
