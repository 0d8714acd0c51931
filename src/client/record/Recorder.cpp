#include "client/record/Recorder.h"

#include "client/agent/Protocol.h"
#include "client/console/Errors.h"
#include "client/console/Signals.h"
#include "client/console/Text.h"
#include "client/profile/Profile.h"
#include "client/record/RecordedTime.h"
#include "client/record/ThreadStateLimit.h"
#include "db/SnapshotReader.h"
#include "platform/Platform.h"

#include <ctime>
#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace vdk {

namespace {

const char Cpu[] = "CPU times";
const char Allocations[] = "allocations";
const char Locks[] = "waits";
const char Exceptions[] = "exceptions";

bool isOfThisMachine(const std::string& host) {
    return host == "127.0.0.1" || host == "localhost" || host == "::1";
}

const char* nameOf(CpuRecording recording) {
    return recording == CpuRecording::Trace  ? "tracing"
           : recording == CpuRecording::Wall ? "sampling of elapsed time"
                                             : "sampling";
}

// The tables of the file if it is the snapshot of this session; nothing otherwise.
std::unique_ptr<DB> readSession(const std::string& path, int64_t sessionId) {
    const Descriptor file(open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOFOLLOW));
    if (!file) {
        return nullptr;
    }
    auto db = std::make_unique<DB>(-1, -1);
    try {
        DescriptorSource bytes(file.get());
        SnapshotReader reader(db.get(), bytes);
        if (reader.readHeader().startTime != sessionId) {
            return nullptr;
        }
        reader.read();
    } catch (const BadInputException&) {
        return nullptr; // another file, or one that was not finished
    }
    return db;
}

} // namespace

Recorder::Recorder(LiveAgent connected, const RecordWish& wish)
    : agent(std::move(connected)), wish(wish),
      isLocal(isOfThisMachine(agent.client.address().host) && agent.client.address().pid != 0),
      sharesFiles(isLocal && ProcFs().sharesFiles(agent.info.pid)),
      fetcher(std::make_unique<TableFetcher>(agent.client)) {
    fetcher->follow(SampledCpuTable);
    fetcher->follow(SampledLinesTable);
    if (wish.wholeTables) {
        fetcher->followAll();
    }
    startNs = lastDataNs = Platform::monotonicTimeNs();
    startWallMs = int64_t(time(nullptr)) * 1000;
}

void Recorder::start(Console& console) {
    // What is there already comes first, so that it can be taken off.
    fetcher->fetch(wish.tables);
    baseline.emplace(fetcher->database());
    startAll(console);
}

void Recorder::startBeside(Console& console, const RecordWish& running) {
    startAll(console);
    startedCpu |= running.cpu != CpuRecording::None;
    if (running.cpu == CpuRecording::Sample || running.cpu == CpuRecording::Trace) {
        started.emplace_back(Cpu);
    }
    if (running.allocInterval) {
        started.emplace_back(Allocations);
    }
    if (running.locks) {
        started.emplace_back(Locks);
    }
}

void Recorder::startAll(Console& console) {
    try {
        startCpu(console);
        startOthers();
    } catch (const ClientError&) {
        forgetInterrupt();
        stop(console);
        throw;
    }
    startNs = lastDataNs = Platform::monotonicTimeNs();
}

void Recorder::startCpu(Console& console) {
    if (wish.cpu == CpuRecording::None) {
        return;
    }
    const bool isOn = (agent.status & protocol::CPU_TIMES_BIT) != 0;
    const bool traces = (agent.status & protocol::CPU_COUNTS_BIT) != 0;
    if (isOn) {
        if (wish.cpu == CpuRecording::Wall || traces != (wish.cpu == CpuRecording::Trace)) {
            const std::string verb = traces ? "trace" : "sample";
            throw ClientError(ExitCode::Refused, "cpu.on",
                              std::string("CPU ") + (traces ? "tracing" : "sampling") +
                                  " is on in process " + std::to_string(agent.info.pid),
                              "`vdk " + verb + " stop " + std::to_string(agent.info.pid) +
                                  "` ends it");
        }
        found.emplace_back(nameOf(wish.cpu));
        return;
    }
    if (wish.cpu == CpuRecording::Trace) {
        prepareClasses(console, agent, protocol::RECORDING_TRACES, wish.only);
    }
    // Noted first: an agent finishes what it was asked for, whatever becomes of the client.
    started.emplace_back(Cpu);
    startedCpu = true;
    if (wish.cpu == CpuRecording::Wall) {
        agent.client.startWallSampling(std::nullopt, wish.threads);
    } else if (!wish.sampler.empty()) {
        agent.client.startSampling(wish.sampler, protocol::CPU_SAMPLING, std::nullopt,
                                   std::nullopt);
    } else {
        agent.client.startCpuProfiling(wish.cpu == CpuRecording::Trace ? protocol::CPU_TRACING
                                                                       : protocol::CPU_SAMPLING,
                                       std::nullopt, std::nullopt);
    }
}

void Recorder::startOthers() {
    const auto begin = [&](bool isWanted, int64_t bit, const char* kind, auto start) {
        if (!isWanted) {
            return;
        }
        if (agent.status & bit) {
            found.emplace_back(kind);
            return;
        }
        started.emplace_back(kind);
        start();
    };
    begin(wish.allocInterval.has_value(), protocol::ALLOCATION_RECORDING_BIT, Allocations,
          [&] { agent.client.startSampledAllocationRecording(*wish.allocInterval, true); });
    begin(wish.locks, protocol::MONITORS_BIT, Locks,
          [&] { agent.client.switchMonitorProfiling(true); });
    begin(wish.exceptions, protocol::EXCEPTION_TELEMETRY_BIT, Exceptions,
          [&] { agent.client.switchExceptionTelemetry(true); });
}

void Recorder::stopOne(const std::string& kind) {
    if (kind == Cpu) {
        agent.client.stopCpuProfiling();
    } else if (kind == Allocations) {
        agent.client.stopAllocationRecording();
    } else if (kind == Locks) {
        agent.client.switchMonitorProfiling(false);
    } else {
        agent.client.switchExceptionTelemetry(false);
    }
}

bool Recorder::isProcessGone() const {
    if (!isLocal) {
        return false;
    }
    const auto status = ProcFs().status(agent.info.pid);
    return !status || status->state == "Z" || status->state == "X";
}

void Recorder::fetch() {
    fetcher->fetch(wish.tables);
    lastDataNs = Platform::monotonicTimeNs();
}

bool Recorder::refresh() {
    if (ended) {
        return false;
    }
    if (!isProcessGone()) {
        try {
            fetch();
            return true;
        } catch (const ClientError&) {
            // It may be about to end, or have no time: the next refresh tells.
            return true;
        }
    }
    ended = true;
    endNs = Platform::monotonicTimeNs();
    lostSeconds = double(endNs - lastDataNs) / 1e9;
    return false;
}

void Recorder::stop(Console& console) {
    if (ended || (isProcessGone() && !refresh())) {
        return;
    }
    endNs = Platform::monotonicTimeNs();
    std::string left;
    for (const std::string& kind : started) {
        try {
            stopOne(kind);
        } catch (const ClientError& e) {
            left += (left.empty() ? "" : ", ") + kind + " (" + e.what() + ")";
        }
    }
    try {
        fetch();
    } catch (const ClientError& e) {
        left += (left.empty() ? "" : "; ") + std::string("the last of the data is missing (") +
                e.what() + ")";
    }
    // A JVM that is ending closes its port first.
    for (int round = 0; !left.empty() && isLocal && !isProcessGone() && round < 50; round++) {
        sleepUnlessInterrupted(100);
    }
    if (isProcessGone()) {
        refresh();
        return;
    }
    if (!left.empty()) {
        console.warn("process " + std::to_string(agent.info.pid) + " may go on recording " + left +
                     ": `vdk status` tells");
    }
    started.clear();
}

double Recorder::seconds() const {
    return double((endNs > 0 ? endNs : Platform::monotonicTimeNs()) - startNs) / 1e9;
}

// A JVM whose CPU times are being measured leaves a snapshot at its end.
std::unique_ptr<DB> Recorder::readExitSnapshot() const {
    const std::string& folder = agent.info.snapshotDirectory;
    DIR* listing = sharesFiles ? opendir(folder.c_str()) : nullptr;
    std::unique_ptr<DB> result;
    while (const dirent* entry = listing ? readdir(listing) : nullptr) {
        const std::string path = folder + "/" + entry->d_name;
        struct stat info;
        const bool isCandidate = endsWith(path, ".snapshot") && lstat(path.c_str(), &info) == 0 &&
                                 S_ISREG(info.st_mode) &&
                                 int64_t(info.st_mtime) * 1000 >= startWallMs;
        if (isCandidate && (result = readSession(path, agent.info.sessionId))) {
            if (startedCpu) {
                unlink(path.c_str());
            }
            break;
        }
    }
    if (listing) {
        closedir(listing);
    }
    return result;
}

DataSource Recorder::takeData() {
    DataSource source;
    source.name = std::to_string(agent.info.pid);
    source.session = agent.info.sessionName;
    source.captureTimeMs = int64_t(time(nullptr)) * 1000;
    source.status = agent.status;
    if (ended) {
        source.owned = readExitSnapshot();
        lostSeconds = source.owned ? 0 : lostSeconds;
    }
    if (!source.owned) {
        fetcher->database().startTime = agent.info.sessionId;
        source.client = std::make_unique<AgentClient>(agent.client);
        source.fetcher = std::move(fetcher);
    }
    if (baseline) {
        baseline->takeOff(source.database());
    }
    if (wish.wholeTables) {
        limitThreadStates(source.database());
    }
    noteRecordedTime(source.database(), int64_t((seconds() - lostSeconds) * 1000));
    return source;
}

} // namespace vdk
