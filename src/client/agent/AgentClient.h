// What an agent can be asked, each as one call on a connection of its own: the agent serves one
// client at a time, so no connection stays open between calls.
#pragma once

#include "client/agent/Connection.h"
#include "client/agent/Session.h"
#include "client/console/OutputFile.h"
#include "db/DB.h"
#include "db/TableStreamReader.h"

#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>

namespace vdk {

struct AgentInfo {
    int protocolVersion = 0;
    std::string product;
    int64_t capabilities = 0;
    std::string sessionName;
    int64_t sessionId = 0;
    std::string hostId;
    std::string snapshotDirectory;
    int pid = 0;
    int telemetryLimit = 0; // rows
};

enum class ProfilingData { Cpu, Monitors, Allocations, Exceptions };

// Percent done, 0 to 100.
using ProgressCallback = std::function<void(int)>;

class AgentClient {
public:
    explicit AgentClient(const Endpoint& endpoint, int timeoutMs = 15000)
        : endpoint(endpoint), timeoutMs(timeoutMs) {}

    // Refuses an agent of another protocol version ("agent.incompatible").
    AgentInfo info();
    // info and status in one connection.
    AgentInfo info(int64_t* status);

    // Has the classes carry the calls of a recording, so that its start finds them ready; for an
    // agent with the option `ondemand`. only: class patterns with ";" between them, for tracing.
    struct PreparedClasses {
        int count = 0;
        int64_t tookNs = 0;
        int64_t longestStopNs = 0;
    };
    PreparedClasses prepareRecording(int recording, const std::string& only,
                                     const std::optional<std::string>& filters,
                                     const ProgressCallback& progress);
    // Has the agent leave the JVM. What it has not done it names, with the reason.
    struct Detached {
        int classes = 0;      // that have their own bytes again
        int withWrappers = 0; // around natives
        int loaders = 0;      // classes of loaders that go on finding the agent
        int64_t longestStopNs = 0;
        std::vector<std::string> notDone;
    };
    Detached detach(const ProgressCallback& progress);
    // Filter and wall-time texts; nothing leaves them to the agent's own files.
    void startCpuProfiling(int64_t mode, const std::optional<std::string>& filters,
                           const std::optional<std::string>& wallTimes);
    // The same, sampled by the one of this name, or refused.
    void startSampling(const std::string& sampler, int64_t mode,
                       const std::optional<std::string>& filters,
                       const std::optional<std::string>& wallTimes);
    // Of elapsed time; nothing takes all threads.
    void startWallSampling(const std::optional<std::string>& filters,
                           const std::optional<std::string>& threads);
    void stopCpuProfiling();
    // Exactly: every `each`-th object, and every one of sizeLimit bytes and more. With a limit the
    // agent asks the JVM for the size of each object that it counts.
    void startAllocationRecording(int each, std::optional<int> sizeLimit, bool byClass);
    // By samples of the JVM.
    void startSampledAllocationRecording(int intervalBytes, bool byClass);
    void stopAllocationRecording();
    // The start is refused where it runs already.
    void switchMonitorProfiling(bool on);
    void switchExceptionTelemetry(bool on);
    // Opens a generation; walks over the whole heap.
    void advanceGeneration(const std::string& description);
    void clear(ProfilingData data);
    // Has the agent free what nothing that was recorded names any more.
    void freeUnusedRows();
    // Rewrites the classes that were loaded before an attach; with a filter file, a path in the
    // target's view, all but those that it filters out. Nothing to do is no error.
    void retransformLoadedClasses(const std::optional<std::string>& filterFile);

    struct GcResult {
        int64_t usedBefore, usedAfter; // bytes
    };
    GcResult forceGc();
    std::string statistics();

    struct KnownProbes {
        std::vector<std::string> registered; // top classes, dotted
        std::vector<std::string> available;  // the agent's own and the registered ones
    };
    KnownProbes probes();
    // By names of classes that the agent finds by itself.
    void registerProbes(const std::vector<std::string>& names);
    void unregisterProbes(const std::vector<std::string>& names);
    // Class files; a class stands behind those that it needs.
    void registerProbesByBytecode(const std::vector<std::string>& classFiles);
    // The trigger text; the second replaces the listeners that are there, or adds to them.
    std::string triggers();
    void setTriggers(const std::string& text, bool append);
    std::string threadDump();

    // The path of the file in the target's view.
    std::string captureSnapshot(int64_t flags, const std::string& directory,
                                const std::string& pattern, const ProgressCallback& progress);
    // Fetches a snapshot of the agent's into the file; the number of its bytes.
    int64_t downloadSnapshot(const std::string& path, bool compressed, OutputFile& out,
                             const ProgressCallback& progress);

    // Work that runs the JVM's collector or walks all data takes longer than any other answer.
    static constexpr int LongTimeoutMs = 600000;

    const Endpoint& address() const { return endpoint; }
    int timeout() const { return timeoutMs; }

private:
    // One request without fields and an answer without fields.
    void command(int packet, int timeout);
    void receiveChunks(Session& session, int64_t length, OutputFile& out,
                       const ProgressCallback& progress);
    void receivePlain(Session& session, int64_t length, OutputFile& out,
                      const ProgressCallback& progress);

    Endpoint endpoint;
    int timeoutMs;
};

// A local copy of an agent's tables that each fetch brings up to date: only what changed comes.
class TableFetcher {
public:
    // All tables of the largest known application are a tenth of this.
    static constexpr long MostBytes = 1L << 30;

    // A fetch of more than `mostBytes` has no end.
    explicit TableFetcher(AgentClient& client, long mostBytes = MostBytes);

    // Bit s of the mask is core table s. Throws ClientError BadInput "agent.data" when the stream
    // does not hold up; the copy is then of no more use.
    void fetch(int mask);
    // From here on fetches bring the user table of this name as well, once the agent has one.
    void follow(const std::string& userTable) { followed.try_emplace(userTable, -1); }
    void unfollow(const std::string& userTable) { followed.erase(userTable); }
    // All user tables, those to come included.
    void followAll() { followsAll = true; }

    DB& database() { return *db; }

private:
    AgentClient& client;
    long mostBytes;
    std::unique_ptr<DB> db;
    TableStreamReader reader;

    // Makes the user tables that the agent has made, and notes the slots of the followed ones.
    void findFollowed();
    int lastFollowed() const;
    bool isFollowed(int slot) const;

    std::map<std::string, int> followed; // slots, -1 where there is none yet
    bool followsAll = false;
    int lastKnown = -1; // slot of the last user table that the agent has made
};

} // namespace vdk
