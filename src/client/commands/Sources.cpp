#include "client/commands/Sources.h"

#include "client/agent/Protocol.h"
#include "client/console/Errors.h"
#include "client/console/Signals.h"
#include "client/console/Text.h"
#include "client/foreign/ForeignFiles.h"
#include "client/profile/Profile.h"
#include "db/SnapshotReader.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace vdk {

// The address of the agent in a JVM.
static Endpoint endpointOf(const Machine& machine, const Jvm& jvm) {
    std::string process = "process " + std::to_string(jvm.pid);
    if (!jvm.isProfiled() && jvm.markersHidden) {
        throw ClientError(ExitCode::NoTarget, "target.hidden",
                          process + " has shared memory of its own, which this user may not look "
                                    "at: an agent in it is not seen from here",
                          "run vdk as root, or " + fromInside(machine.processes, jvm));
    }
    if (!jvm.isProfiled()) {
        throw ClientError(ExitCode::NoTarget, "target.unprofiled",
                          process + " (" + printable(jvm.shortName()) + ") has no agent",
                          "`vdk attach " + std::to_string(jvm.pid) + "` loads it");
    }
    auto status = machine.processes.status(jvm.pid);
    if (status && status->state == "T") {
        throw ClientError(ExitCode::AgentFailed, "target.stopped", process + " is stopped",
                          "`kill -CONT " + std::to_string(jvm.pid) + "` lets it go on");
    }
    Endpoint endpoint;
    endpoint.host = jvm.host;
    endpoint.port = jvm.port;
    endpoint.pid = jvm.pid;
    unsigned long users = machine.processes.namespaceId(jvm.pid, "user");
    if (geteuid() == 0 && users != 0 && users != machine.processes.ownNamespaceId("user")) {
        endpoint.uid = jvm.uid;
    }
    if (jvm.ownNetwork) {
        std::string path = machine.processes.path(jvm.pid, "ns/net");
        endpoint.network = std::make_shared<Descriptor>(open(path.c_str(), O_RDONLY | O_CLOEXEC));
        if (!*endpoint.network) {
            throw ClientError(ExitCode::NoTarget, "target.network",
                              process + " has a network of its own, which this user may not enter",
                              "run vdk as root, or " + fromInside(machine.processes, jvm));
        }
    }
    return endpoint;
}

LiveAgent connectAgent(const Machine& machine, const Jvm& jvm, int timeoutMs) {
    LiveAgent agent{AgentClient(endpointOf(machine, jvm), timeoutMs), {}, 0};
    agent.info = agent.client.info(&agent.status);
    // The kernel says who listens; this tells whether it is an agent of that process.
    if (agent.info.pid != jvm.pid && agent.info.pid != jvm.namespacePid) {
        throw ClientError(ExitCode::AgentFailed, "target.foreign",
                          "port " + std::to_string(jvm.port) + " belongs to process " +
                              std::to_string(agent.info.pid) + ", not to " +
                              std::to_string(jvm.pid),
                          "what answers there is not this process's agent");
    }
    agent.info.pid = jvm.pid; // in a container the agent knows another id
    return agent;
}

std::optional<std::string> Machine::askForAgent(const Jvm& jvm) const {
    try {
        return connectAgent(*this, jvm, patienceMs).info.sessionName;
    } catch (const ClientError& e) {
        if (e.code == ExitCode::Aborted) {
            throw;
        }
        return std::nullopt; // not an agent, or none that answers
    }
}

Jvm awaitMarker(JvmFinder& finder, const Jvm& jvm) {
    Jvm last = jvm;
    for (int round = 0; round < 20; round++) {
        last = finder.look(jvm.pid).value_or(jvm);
        last.mainName = jvm.mainName;
        if (last.isProfiled() || last.markersHidden) {
            return last;
        }
        if (!sleepUnlessInterrupted(150)) {
            throwIfInterrupted();
        }
    }
    return last;
}

// True for "host:99999": an address, but for its number.
static bool namesPort(const std::string& target) {
    size_t colon = target.rfind(':');
    return colon != std::string::npos && colon + 1 < target.size() &&
           target.find_first_not_of("0123456789", colon + 1) == std::string::npos;
}

LiveAgent connectAgent(const std::string& target, const Arguments& arguments) {
    int timeoutMs = int(arguments.durationMs("--timeout", 15000));
    Endpoint endpoint;
    if (!parseEndpoint(target, endpoint)) {
        if (namesPort(target)) {
            throw ClientError(ExitCode::Usage, "usage",
                              "'" + printable(target) + "' has no port from 1 to 65535");
        }
        Machine machine;
        machine.patienceMs = timeoutMs;
        Jvm jvm = machine.finder.find(target);
        if (!jvm.isProfiled() && !jvm.markersHidden && machine.processes.mapsAgent(jvm.pid)) {
            jvm = awaitMarker(machine.finder, jvm);
        }
        return connectAgent(machine, jvm, timeoutMs);
    }
    LiveAgent agent{AgentClient(endpoint, timeoutMs), {}, 0};
    agent.info = agent.client.info(&agent.status);
    return agent;
}

bool namesFile(const std::string& text) {
    struct stat info;
    if (stat(text.c_str(), &info) == 0 && S_ISREG(info.st_mode)) {
        return true;
    }
    return text.find('/') != std::string::npos || endsWith(text, ".snapshot");
}

// By its first bytes: a dump in the HPROF format.
static bool isHeapDump(const std::string& path) {
    return startsWith(headOf(path), "JAVA PROFILE");
}

static DataSource openSnapshot(const std::string& path) {
    int descriptor = open(path.c_str(), O_RDONLY | O_CLOEXEC);
    struct stat info;
    if (descriptor >= 0 && fstat(descriptor, &info) == 0 && S_ISDIR(info.st_mode)) {
        close(descriptor);
        descriptor = -1;
        errno = EISDIR;
    }
    if (descriptor < 0) {
        throw ClientError(ExitCode::Usage, "input.open",
                          "cannot open " + path + ": " + strerror(errno));
    }
    if (isHeapDump(path)) {
        close(descriptor);
        throw ClientError(ExitCode::BadInput, "snapshot.heapdump",
                          path + " is a heap dump, which has no CPU data",
                          "`vdk heap " + shellWord(path) + "` tells what is in it");
    }
    DataSource source;
    source.name = source.session = path;
    if ((source.owned = readForeignFile(path))) {
        close(descriptor);
        source.captureTimeMs = int64_t(info.st_mtime) * 1000;
        return source;
    }
    source.owned = std::make_unique<DB>(-1, -1);
    try {
        DescriptorSource bytes(descriptor);
        SnapshotReader reader(source.owned.get(), bytes);
        const SnapshotHeader& header = reader.read();
        source.session = header.sessionName.c_str();
        source.captureTimeMs = header.captureTimeMs;
    } catch (const BadInputException& e) {
        close(descriptor);
        throw ClientError(ExitCode::BadInput, "snapshot.data",
                          path + ": " + printable(e.message.c_str()));
    } catch (...) {
        close(descriptor);
        throw;
    }
    close(descriptor);
    return source;
}

DataSource openData(const std::string& fileOrTarget, const Arguments& arguments, int mask,
                    bool withUserTables) {
    if (namesFile(fileOrTarget)) {
        return openSnapshot(fileOrTarget);
    }
    LiveAgent agent = connectAgent(fileOrTarget, arguments);
    DataSource source;
    source.name = fileOrTarget;
    source.session = agent.info.sessionName;
    source.live = true;
    source.status = agent.status;
    source.client = std::make_unique<AgentClient>(agent.client);
    source.fetcher = std::make_unique<TableFetcher>(*source.client);
    if (mask >> SLOT_CPUProfiling & 1) {
        source.fetcher->follow(SampledCpuTable);
        source.fetcher->follow(SampledLinesTable);
    }
    if (mask >> SLOT_AllocInfo & 1) {
        source.fetcher->follow(LiveAllocationsTable);
    }
    if (withUserTables) {
        source.fetcher->followAll();
    }
    source.fetcher->fetch(mask);
    return source;
}

void writeDone(Console& console, const char* schema, const LiveAgent& agent, const char* what,
               const std::optional<AgentClient::PreparedClasses>& prepared) {
    if (!console.json) {
        console.note(std::string(what) + " (process " + std::to_string(agent.info.pid) + ", " +
                     printable(agent.info.sessionName) + ")");
        if (prepared) {
            console.note(formatCount(prepared->count) + " classes rewritten in " +
                         formatNs(prepared->tookNs) + ", longest stop " +
                         formatNs(prepared->longestStopNs));
        }
        return;
    }
    JsonDocument json(console, schema);
    json.field("pid", agent.info.pid);
    json.field("session", agent.info.sessionName).field("done", what);
    if (prepared) {
        json.field("rewrittenClasses", prepared->count).field("rewritingNs", prepared->tookNs);
        json.field("longestStopNs", prepared->longestStopNs);
    }
    json.end();
}

std::optional<AgentClient::PreparedClasses>
prepareClasses(Console& console, LiveAgent& agent, int recording,
               const std::vector<std::string>& only, const std::optional<std::string>& filters) {
    if ((agent.info.capabilities & protocol::ON_DEMAND_BIT) == 0) {
        if (!only.empty()) {
            throw ClientError(ExitCode::Refused, "trace.only",
                              "this agent rewrites every class as it loads: --only is for agents "
                              "with the option ondemand",
                              "`vdk run` and `vdk attach` give it unless --eager; filters "
                              "(--filter-file) leave methods out");
        }
        return std::nullopt;
    }
    ProgressBar bar(console, "rewriting classes");
    return agent.client.prepareRecording(recording, join(only, ";"), filters,
                                         [&](int percent) { bar.update(percent); });
}

} // namespace vdk
