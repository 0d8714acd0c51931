// Commands that switch recordings besides CPU profiling: alloc.
#include "client/agent/Protocol.h"
#include "client/commands/Commands.h"
#include "client/commands/Sources.h"
#include "client/console/Errors.h"

namespace vdk {

namespace {

constexpr int DefaultEach = 10;
constexpr int DefaultSizeLimit = 1 << 20;
constexpr int DefaultInterval = 512 << 10;

void startAllocations(AgentClient& client, const Arguments& arguments) {
    const bool byClass = !arguments.has("--no-classes");
    if (arguments.has("--sampled")) {
        client.startSampledAllocationRecording(arguments.size("--interval", DefaultInterval),
                                               byClass);
        return;
    }
    client.startAllocationRecording(int(arguments.number("--each", DefaultEach)),
                                    arguments.size("--size-limit", DefaultSizeLimit), byClass);
}

void checkAllocationOptions(const Arguments& arguments) {
    const bool sampled = arguments.has("--sampled");
    if (sampled && (arguments.has("--each") || arguments.has("--size-limit"))) {
        throw ClientError(ExitCode::Usage, "usage",
                          "--sampled goes without --each and --size-limit");
    }
    if (!sampled && arguments.has("--interval")) {
        throw ClientError(ExitCode::Usage, "usage", "--interval goes with --sampled");
    }
}

} // namespace

int runAlloc(Console& console, const Arguments& arguments) {
    checkAllocationOptions(arguments);
    LiveAgent agent = connectAgent(arguments.text("TARGET"), arguments);
    const bool isOn = (agent.status & protocol::ALLOCATION_RECORDING_BIT) != 0;
    const char* done = "allocation recording was off";
    if (arguments.text("ACTION") == "start") {
        startAllocations(agent.client, arguments);
        done = "allocation recording started";
    } else if (isOn) {
        agent.client.stopAllocationRecording();
        done = "allocation recording stopped";
    }
    writeDone(console, "vdk.alloc/1", agent, done);
    return 0;
}

} // namespace vdk
