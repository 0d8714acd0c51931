// Commands about objects and where they come from: alloc, generation.
#include "client/agent/Protocol.h"
#include "client/commands/Commands.h"
#include "client/commands/Sources.h"
#include "client/console/Errors.h"
#include "client/console/Text.h"

#include <algorithm>
#include <string>

namespace vdk {

namespace {

constexpr int DefaultEach = 10;
constexpr int DefaultInterval = 512 << 10;

void startAllocations(AgentClient& client, const Arguments& arguments) {
    const bool byClass = !arguments.has("--no-classes");
    if (arguments.has("--sampled")) {
        client.startSampledAllocationRecording(arguments.size("--sampled", DefaultInterval),
                                               byClass);
        return;
    }
    const bool hasLimit = arguments.has("--size-limit");
    client.startAllocationRecording(
        int(arguments.number("--each", DefaultEach)),
        hasLimit ? std::optional(arguments.size("--size-limit", 0)) : std::nullopt, byClass);
}

void checkAllocationOptions(const Arguments& arguments) {
    if (arguments.has("--sampled") && (arguments.has("--each") || arguments.has("--size-limit"))) {
        throw ClientError(ExitCode::Usage, "usage",
                          "--sampled goes without --each and --size-limit");
    }
}

// The last generation of that name. Its packet is answered without a number.
int lastGeneration(AgentClient& client, const std::string& name) {
    TableFetcher fetcher(client);
    fetcher.fetch(1 << SLOT_String | 1 << SLOT_Generation);
    DB& db = fetcher.database();
    int last = 0;
    db.generationTable->eachRecord([&](int number, const GenerationRecord& record) {
        const char* description = db.stringPool->getText(record.descriptionStrID);
        if (record.stamp > 0 && description && name == description) {
            last = std::max(last, number);
        }
    });
    return last;
}

} // namespace

int runAlloc(Console& console, const Arguments& arguments) {
    checkAllocationOptions(arguments);
    LiveAgent agent = connectAgent(arguments.text("TARGET"), arguments);
    const bool isOn = (agent.status & protocol::ALLOCATION_RECORDING_BIT) != 0;
    const char* done = "allocation recording was off";
    std::optional<AgentClient::PreparedClasses> prepared;
    if (arguments.text("ACTION") == "start") {
        if (!arguments.has("--sampled") && !isOn) {
            prepared = prepareClasses(console, agent, protocol::RECORDING_ALLOCATES);
        }
        startAllocations(agent.client, arguments);
        done = "allocation recording started";
    } else if (isOn) {
        agent.client.stopAllocationRecording();
        done = "allocation recording stopped";
    }
    writeDone(console, "vdk.alloc/1", agent, done, prepared);
    return 0;
}

int runGeneration(Console& console, const Arguments& arguments) {
    const std::string name = arguments.text("NAME", "mark");
    LiveAgent agent = connectAgent(arguments.text("TARGET"), arguments);
    agent.client.advanceGeneration(name);
    const int number = lastGeneration(agent.client, name);
    if (console.json) {
        JsonDocument json(console, "vdk.generation/1");
        json.field("pid", agent.info.pid);
        json.field("session", agent.info.sessionName).field("generation", number);
        json.field("name", name);
        json.end();
        return 0;
    }
    console.out << "generation " << number << " (" << printable(name) << ")\n";
    return 0;
}

} // namespace vdk
