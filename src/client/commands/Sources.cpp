#include "client/commands/Sources.h"

#include "client/agent/Protocol.h"
#include "client/console/Errors.h"
#include "client/console/Text.h"
#include "client/profile/Profile.h"
#include "db/SnapshotReader.h"

#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace vdk {

LiveAgent connectAgent(const std::string& target, const Arguments& arguments) {
    Endpoint endpoint;
    Jvm jvm;
    if (!parseEndpoint(target, endpoint)) {
        Machine machine;
        jvm = machine.finder.find(target);
        if (!jvm.isProfiled()) {
            throw ClientError(ExitCode::NoTarget, "target.unprofiled",
                              "process " + std::to_string(jvm.pid) + " (" +
                                  printable(jvm.shortName()) + ") has no agent",
                              "`vdk attach " + std::to_string(jvm.pid) + "` loads it");
        }
        endpoint.port = jvm.port;
    }
    LiveAgent agent{AgentClient(endpoint, int(arguments.durationMs("--timeout", 15000))), {}, 0};
    agent.info = agent.client.info(&agent.status);
    // The marker area can be written by anybody: the process itself must answer on the port.
    if (jvm.pid != 0 && agent.info.pid != jvm.pid && agent.info.pid != jvm.namespacePid) {
        throw ClientError(ExitCode::AgentFailed, "target.foreign",
                          "port " + std::to_string(endpoint.port) + " belongs to process " +
                              std::to_string(agent.info.pid) + ", not to " +
                              std::to_string(jvm.pid));
    }
    if (jvm.pid != 0) {
        agent.info.pid = jvm.pid; // in a container the agent knows another id
    }
    return agent;
}

bool namesFile(const std::string& text) {
    struct stat info;
    if (stat(text.c_str(), &info) == 0 && S_ISREG(info.st_mode)) {
        return true;
    }
    return text.find('/') != std::string::npos || endsWith(text, ".snapshot");
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
        throw ClientError(ExitCode::BadInput, "snapshot.open",
                          "cannot open " + path + ": " + strerror(errno));
    }
    DataSource source;
    source.name = path;
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

DataSource openData(const std::string& fileOrTarget, const Arguments& arguments, int mask) {
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
    }
    source.fetcher->fetch(mask);
    return source;
}

} // namespace vdk
