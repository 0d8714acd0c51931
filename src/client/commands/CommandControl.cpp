// Commands that are one request to an agent: status, sample, trace, monitors, exceptions, clear,
// dump, gc, stats.
#include "client/agent/Protocol.h"
#include "client/agent/ThreadDumpText.h"
#include "client/commands/Commands.h"
#include "client/commands/Sources.h"
#include "client/console/OutputFile.h"
#include "client/console/Signals.h"
#include "client/console/Text.h"
#include "client/profile/Report.h"

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstring>
#include <optional>
#include <regex>
#include <sstream>
#include <unistd.h>

namespace vdk {

namespace {

template <size_t Count>
std::vector<std::string> bitNames(const protocol::StatusBit (&bits)[Count], int64_t word) {
    std::vector<std::string> names;
    for (const protocol::StatusBit& bit : bits) {
        if (word & bit.bit) {
            names.push_back(bit.name);
        }
    }
    return names;
}

void writeNames(JsonWriter& json, const char* key, const std::vector<std::string>& names) {
    json.key(key).beginArray();
    for (const std::string& name : names) {
        json.value(name);
    }
    json.endArray();
}

// "cpu sampling", "cpu tracing" or "off".
const char* cpuMode(int64_t status) {
    if (!(status & protocol::CPU_TIMES_BIT)) {
        return "off";
    }
    return status & protocol::CPU_COUNTS_BIT ? "tracing" : "sampling";
}

// How this process counts exceptions, once it is asked to.
const char* exceptionRoad(const AgentInfo& info) {
    return info.capabilities & protocol::NO_EXCEPTION_EVENTS_BIT ? "calls" : "events";
}

// What sampling tells of itself while it is on. The stacks are left to reports.
Profile samplingOf(LiveAgent& agent) {
    if (cpuMode(agent.status) != std::string("sampling")) {
        return {};
    }
    TableFetcher fetcher(agent.client);
    fetcher.follow(SampledCpuTable);
    fetcher.fetch(1 << SLOT_String | 1 << SLOT_Thread | 1 << SLOT_Property);
    return makeProfile(fetcher.database());
}

void printSampling(Console& console, const Profile& sampling) {
    if (!samplerName(sampling).empty()) {
        const std::string sampled = sampledText(sampling.sampledCpu());
        console.out << "sampler    " << printable(samplerText(sampling))
                    << (sampled.empty() ? "" : ", " + sampled) << "\n";
    }
}

std::string exceptionRoadText(const AgentInfo& info) {
    return info.capabilities & protocol::NO_EXCEPTION_EVENTS_BIT ? "by inserted calls"
                                                                 : "by the JVM's events";
}

std::optional<std::string> readSpec(const Arguments& arguments, const char* option) {
    if (!arguments.has(option)) {
        return std::nullopt;
    }
    std::string path = arguments.text(option);
    auto text = readSmallFile(path, 16 << 20);
    if (!text) {
        throw ClientError(ExitCode::Usage, "input.open",
                          "cannot read " + path + ": " + strerror(errno));
    }
    return text;
}

struct CpuMode {
    const char* schema;
    const char* name; // as cpuMode gives it
    int64_t mode;
};

[[noreturn]] void refuseWhile(const std::string& running, const std::string& target) {
    throw ClientError(ExitCode::Refused, "cpu.on", "CPU " + running + " is on",
                      "`vdk " + std::string(running == "tracing" ? "trace" : "sample") + " stop " +
                          target + "` ends it");
}

// The agent finishes what was asked for, whatever becomes of the client: so it is asked to stop.
[[noreturn]] void undoStart(LiveAgent& agent, const CpuMode& mode, const ClientError& interrupted) {
    forgetInterrupt();
    const std::string name = mode.name;
    std::string outcome = name + " does not go on";
    try {
        agent.client.stopCpuProfiling();
    } catch (const ClientError&) {
        outcome = name + " may be on: `vdk status` tells, `vdk " +
                  (name == "tracing" ? "trace" : "sample") + " stop` ends it";
    }
    throw ClientError(interrupted.code, interrupted.word, interrupted.what(), outcome);
}

struct CpuSpecs {
    std::optional<std::string> filters, wallTimes;
    bool isWall = false;
    std::optional<std::string> threads; // of wall times
    std::vector<std::string> only;
    std::string sampler; // empty for that of the agent's options
};

CpuSpecs readSpecs(const Arguments& arguments) {
    CpuSpecs specs = {readSpec(arguments, "--filter-file"),
                      readSpec(arguments, "--wall-time-file"),
                      arguments.has("--wall"),
                      std::nullopt,
                      arguments.all("--only"),
                      arguments.has("--sampler") ? arguments.text("--sampler") : ""};
    if (arguments.has("--thread")) {
        specs.threads = arguments.text("--thread");
    }
    if (specs.isWall && (specs.wallTimes || arguments.has("--j2ee"))) {
        throw ClientError(ExitCode::Usage, "usage",
                          "--wall measures all methods in wall time, and goes with neither "
                          "--wall-time-file nor --j2ee");
    }
    if (specs.isWall && specs.sampler == "signal") {
        throw ClientError(ExitCode::Usage, "usage",
                          "--wall is of threads that wait, too, which signals on CPU clocks do "
                          "not meet: --sampler signal does not go with it");
    }
    if (specs.threads && !specs.isWall) {
        throw ClientError(ExitCode::Usage, "usage",
                          "--thread goes with --wall; CPU times are of all threads",
                          "`vdk report --thread` shows those of some");
    }
    return specs;
}

using Prepared = std::optional<AgentClient::PreparedClasses>;

Prepared startCpu(Console& console, LiveAgent& agent, const std::string& target,
                  const CpuMode& mode, const CpuSpecs& specs) {
    const std::string running = cpuMode(agent.status);
    if (running != "off") {
        refuseWhile(running, target);
    }
    Prepared prepared;
    if (mode.mode & protocol::CPU_COUNTS_BIT) {
        prepared =
            prepareClasses(console, agent, protocol::RECORDING_TRACES, specs.only, specs.filters);
    }
    try {
        if (specs.isWall) {
            agent.client.startWallSampling(specs.filters, specs.threads);
        } else if (!specs.sampler.empty()) {
            agent.client.startSampling(specs.sampler, mode.mode, specs.filters, specs.wallTimes);
        } else {
            agent.client.startCpuProfiling(mode.mode, specs.filters, specs.wallTimes);
        }
    } catch (const ClientError& error) {
        if (error.code != ExitCode::Aborted) {
            throw;
        }
        undoStart(agent, mode, error);
    }
    return prepared;
}

// Stops what the command is named by, and nothing else.
std::string stopCpu(LiveAgent& agent, const std::string& target, const CpuMode& mode) {
    const std::string running = cpuMode(agent.status);
    if (running == mode.name) {
        agent.client.stopCpuProfiling();
        return std::string(mode.name) + " stopped";
    }
    if (running != "off") {
        refuseWhile(running, target);
    }
    return std::string(mode.name) + " was off";
}

int switchCpuProfiling(Console& console, const Arguments& arguments, const CpuMode& mode) {
    const CpuSpecs specs = readSpecs(arguments);
    const std::string target = arguments.text("TARGET");
    LiveAgent agent = connectAgent(target, arguments);
    std::string done =
        std::string(mode.name) + (specs.isWall ? " of elapsed time" : "") + " started";
    Prepared prepared;
    if (arguments.text("ACTION") == "start") {
        CpuMode wanted = mode;
        wanted.mode |= arguments.has("--j2ee") ? protocol::J2EE_BIT : 0;
        prepared = startCpu(console, agent, target, wanted, specs);
    } else {
        done = stopCpu(agent, target, mode);
    }
    writeDone(console, mode.schema, agent, done.c_str(), prepared);
    return 0;
}

} // namespace

int runStatus(Console& console, const Arguments& arguments) {
    LiveAgent agent = connectAgent(arguments.text("TARGET"), arguments);
    const AgentInfo& info = agent.info;
    std::vector<std::string> active = bitNames(protocol::StatusBits, agent.status);
    std::vector<std::string> able = bitNames(protocol::CapabilityBits, info.capabilities);
    able.insert(able.begin(), "sampling");
    able.push_back("monitors");
    able.push_back("exceptions");
    const bool attached = (info.capabilities & protocol::ATTACHED_BIT) != 0;
    const Profile sampling = samplingOf(agent);
    if (console.json) {
        JsonDocument json(console, "vdk.status/1");
        json.field("pid", info.pid);
        json.field("session", info.sessionName).field("product", info.product);
        json.field("protocolVersion", info.protocolVersion);
        json.field("port", agent.client.address().port).field("cpu", cpuMode(agent.status));
        json.field("status", agent.status);
        writeSampler(json, sampling);
        writeSampled(json, sampling.sampledCpu());
        writeNames(json, "active", active);
        json.field("capabilities", info.capabilities);
        writeNames(json, "capabilityNames", able);
        json.field("attached", attached).field("exceptionRoad", exceptionRoad(info));
        json.field("sessionId", info.sessionId).field("hostId", info.hostId);
        json.field("snapshotDirectory", info.snapshotDirectory);
        json.field("telemetryLimit", info.telemetryLimit);
        json.end();
        return 0;
    }
    console.out << "process    " << info.pid << " (" << printable(info.sessionName) << ")\n"
                << "agent      " << printable(info.product) << " on "
                << agent.client.address().text() << "\n"
                << "loaded     " << (attached ? "into the running JVM" : "at the JVM's start")
                << "\n"
                << "cpu        " << cpuMode(agent.status) << "\n";
    printSampling(console, sampling);
    console.out << "active     " << (active.empty() ? "-" : join(active, ", ")) << "\n"
                << "able to    " << (able.empty() ? "-" : join(able, ", ")) << "\n"
                << "exceptions " << exceptionRoadText(info) << "\n"
                << "snapshots  " << printable(info.snapshotDirectory) << "\n";
    return 0;
}

int runSample(Console& console, const Arguments& arguments) {
    return switchCpuProfiling(console, arguments,
                              {"vdk.sample/1", "sampling", protocol::CPU_SAMPLING});
}

int runTrace(Console& console, const Arguments& arguments) {
    return switchCpuProfiling(console, arguments,
                              {"vdk.trace/1", "tracing", protocol::CPU_TRACING});
}

// The JVM opens the file itself and would go on without it. Seen through the process's own root
// folder, as far as this user may look there.
static void checkFileOfTarget(const LiveAgent& agent, const std::string& path) {
    if (path[0] != '/') {
        throw ClientError(ExitCode::Usage, "usage",
                          "--filter-file takes a whole path here: the JVM opens the file");
    }
    std::string host = agent.client.address().host;
    bool local = host == "127.0.0.1" || host == "localhost" || host == "::1";
    std::string root = ProcFs().inTarget(agent.info.pid, "/");
    if (!local || access(root.c_str(), X_OK) != 0) {
        return;
    }
    if (access((root + path).c_str(), F_OK) != 0 && errno == ENOENT) {
        throw ClientError(ExitCode::Usage, "input.open", "the JVM sees no file " + printable(path));
    }
}

int runRetransform(Console& console, const Arguments& arguments) {
    LiveAgent agent = connectAgent(arguments.text("TARGET"), arguments);
    std::optional<std::string> filterFile;
    if (arguments.has("--filter-file")) {
        filterFile = arguments.text("--filter-file");
        checkFileOfTarget(agent, *filterFile);
    }
    agent.client.retransformLoadedClasses(filterFile);
    writeDone(console, "vdk.retransform/1", agent, "classes retransformed");
    return 0;
}

int runMonitors(Console& console, const Arguments& arguments) {
    const std::string target = arguments.text("TARGET");
    const bool on = arguments.text("ACTION") == "start";
    LiveAgent agent = connectAgent(target, arguments);
    const bool wasOn = (agent.status & protocol::MONITORS_BIT) != 0;
    if (on && wasOn) {
        throw ClientError(ExitCode::Refused, "monitors.on", "monitor profiling is on",
                          "`vdk monitors stop " + target + "` ends it");
    }
    agent.client.switchMonitorProfiling(on);
    writeDone(console, "vdk.monitors/1", agent,
              on      ? "monitor profiling started"
              : wasOn ? "monitor profiling stopped"
                      : "monitor profiling was off");
    return 0;
}

int runExceptions(Console& console, const Arguments& arguments) {
    const bool on = arguments.text("ACTION") == "on";
    LiveAgent agent = connectAgent(arguments.text("TARGET"), arguments);
    agent.client.switchExceptionTelemetry(on);
    const std::string done = "exception telemetry is on, " + exceptionRoadText(agent.info);
    writeDone(console, "vdk.exceptions/1", agent, on ? done.c_str() : "exception telemetry is off");
    return 0;
}

int runClear(Console& console, const Arguments& arguments) {
    static const struct {
        const char* option;
        ProfilingData data;
        const char* name;
    } kinds[] = {
        {"--cpu", ProfilingData::Cpu, "CPU"},
        {"--monitors", ProfilingData::Monitors, "monitor"},
        {"--allocations", ProfilingData::Allocations, "allocation"},
        {"--exceptions", ProfilingData::Exceptions, "exception"},
    };
    LiveAgent agent = connectAgent(arguments.text("TARGET"), arguments);
    bool any = arguments.has("--all");
    for (const auto& kind : kinds) {
        any = any || arguments.has(kind.option);
    }
    std::vector<std::string> cleared;
    for (const auto& kind : kinds) {
        const bool isDefault = !any && kind.data == ProfilingData::Cpu;
        if (arguments.has("--all") || arguments.has(kind.option) || isDefault) {
            agent.client.clear(kind.data);
            cleared.push_back(kind.name);
        }
    }
    if (arguments.has("--all")) {
        agent.client.freeUnusedRows();
    }
    writeDone(console, "vdk.clear/1", agent, (join(cleared, ", ") + " data cleared").c_str());
    return 0;
}

static void writeDump(JsonWriter& json, const ThreadDump& dump) {
    json.field("jvm", dump.jvm).key("threads").beginArray();
    for (const DumpedThread& thread : dump.threads) {
        json.beginObject().field("name", thread.name).field("id", thread.id);
        json.field("state", thread.state).field("daemon", thread.daemon).key("priority");
        thread.priority != 0 ? json.value(thread.priority) : json.nullValue();
        json.key("frames").beginArray();
        for (const DumpedFrame& frame : thread.frames) {
            json.beginObject().field("method", frame.method).field("source", frame.source);
            writeNames(json, "locks", frame.locks);
            json.endObject();
        }
        json.endArray();
        writeNames(json, "ownedLocks", thread.ownedLocks);
        json.endObject();
    }
    json.endArray().key("deadlocked").beginArray();
    for (int64_t id : dump.deadlocked) {
        json.value(id);
    }
    json.endArray();
}

int runDump(Console& console, const Arguments& arguments) {
    LiveAgent agent = connectAgent(arguments.text("TARGET"), arguments);
    std::string text = agent.client.threadDump();
    bool toConsole = arguments.text("--out", "-") == "-";
    if (console.json) {
        std::ostringstream document;
        JsonWriter json(document, true);
        beginDocument(json, "vdk.dump/1").field("pid", agent.info.pid);
        json.field("session", agent.info.sessionName);
        writeDump(json, parseThreadDump(text));
        json.field("text", text).endObject();
        text = document.str();
    }
    if (!endsWith(text, "\n")) {
        text += "\n";
    }
    if (!toConsole) {
        OutputFile file(arguments.text("--out"));
        file.write(text.data(), text.size());
        file.commit();
        return 0;
    }
    if (console.json) {
        console.out << text;
        return 0;
    }
    for (const std::string& line : split(std::string_view(text).substr(0, text.size() - 1), '\n')) {
        size_t tabs = std::min(line.find_first_not_of('\t'), line.size());
        console.out << std::string(tabs, '\t') << printable(line.substr(tabs)) << "\n";
    }
    return 0;
}

int runGc(Console& console, const Arguments& arguments) {
    LiveAgent agent = connectAgent(arguments.text("TARGET"), arguments);
    AgentClient::GcResult result = agent.client.forceGc();
    if (console.json) {
        JsonDocument json(console, "vdk.gc/1");
        json.field("pid", agent.info.pid);
        json.field("usedBytesBefore", result.usedBefore);
        json.field("usedBytesAfter", result.usedAfter);
        json.end();
        return 0;
    }
    console.out << "heap used: " << formatBytes(result.usedBefore) << " before, "
                << formatBytes(result.usedAfter) << " after\n";
    return 0;
}

// "tables": what the agent's text tells of each table, "name records= number/ rows allocated= ...".
static void writeStatistics(JsonWriter& json, const std::string& text) {
    static const std::regex table("^ *(.*) records= *([0-9]+)/ *([0-9]+) .*$");
    json.key("tables").beginArray();
    for (const std::string& line : split(text, '\n')) {
        std::smatch match;
        if (line.size() < 200 && std::regex_match(line, match, table)) {
            json.beginObject().field("name", match[1].str());
            json.field("records", int64_t(parseNumber(match[2].str(), 0, LONG_MAX).value_or(0)));
            json.field("rows", int64_t(parseNumber(match[3].str(), 0, LONG_MAX).value_or(0)));
            json.endObject();
        }
    }
    json.endArray();
}

int runStats(Console& console, const Arguments& arguments) {
    LiveAgent agent = connectAgent(arguments.text("TARGET"), arguments);
    std::string text = agent.client.statistics();
    if (console.json) {
        JsonDocument json(console, "vdk.stats/1");
        json.field("pid", agent.info.pid);
        writeStatistics(json, text);
        json.field("text", text);
        json.end();
        return 0;
    }
    for (const std::string& line : split(text, '\n')) {
        console.out << printable(line) << "\n";
    }
    return 0;
}

} // namespace vdk
