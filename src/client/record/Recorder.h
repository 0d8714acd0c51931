// One JVM that is being recorded: switches on what is wanted, brings its data here from time to
// time, and switches off what it has switched on and nothing else.
#pragma once

#include "client/commands/Sources.h"
#include "client/record/Baseline.h"

#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace vdk {

enum class CpuRecording { None, Sample, Wall, Trace };

struct RecordWish {
    CpuRecording cpu = CpuRecording::Sample;
    std::string sampler;              // of sampling; empty for that of the agent's options
    std::optional<int> allocInterval; // bytes of an estimate
    bool locks = false;
    bool exceptions = false;
    std::vector<std::string> only;      // of tracing
    std::optional<std::string> threads; // of elapsed time
    int tables = 0;                     // that the file needs
    bool wholeTables = false;           // and all of the probes
};

class Recorder {
public:
    // The agent of a JVM of this machine, or of an address.
    Recorder(LiveAgent agent, const RecordWish& wish);

    // Throws what the agent refuses; what was switched on before that is switched off again.
    void start(Console& console);
    // The same in a JVM whose options have `running` on already, for this object to stop.
    void startBeside(Console& console, const RecordWish& running);
    // Brings the data here. False once the JVM has ended. A failure waits for the next time.
    bool refresh();
    bool isGone() const { return ended || isProcessGone(); }
    // Switches off and brings the last of the data; the end of the JVM meanwhile is no error.
    void stop(Console& console);

    bool hasEnded() const { return ended; }
    const AgentInfo& info() const { return agent.info; }
    // Recordings that were on already, and go on.
    const std::vector<std::string>& foundOn() const { return found; }
    // What was recorded: of a JVM that has ended before, the data of the last refresh or, better,
    // the snapshot that it left at its end, which is taken away where this object had it written.
    DataSource takeData();
    double seconds() const;
    // Since when nothing came any more, of a JVM that has ended.
    double secondsLost() const { return lostSeconds; }

private:
    void fetch();
    void startAll(Console& console);
    void startCpu(Console& console);
    void startOthers();
    void stopOne(const std::string& kind);
    bool isProcessGone() const;
    std::unique_ptr<DB> readExitSnapshot() const;

    LiveAgent agent;
    const RecordWish wish;
    const bool isLocal;
    const bool sharesFiles;
    std::unique_ptr<TableFetcher> fetcher;
    std::optional<Baseline> baseline;
    std::vector<std::string> started, found;
    bool startedCpu = false;
    bool ended = false;
    int64_t startNs = 0, endNs = 0, lastDataNs = 0, startWallMs = 0;
    double lostSeconds = 0;
};

} // namespace vdk
