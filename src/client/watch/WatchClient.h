// A watch in an agent: started, read and stopped, each by a request of its own.
#pragma once

#include "client/agent/AgentClient.h"
#include "client/watch/MethodSums.h"
#include "client/watch/WatchedCall.h"

#include <string>
#include <vector>

namespace vdk {

struct WatchRequest {
    std::string pattern;
    std::string instanceOf; // empty for any
    int32_t flags = 0;      // of protocol::WATCH_...
    int64_t shortestNs = 0;
    int64_t mostEvents = 0; // 0 for no end
    int32_t room = 0;       // events that may wait in the agent; 0 is the agent's choice
    int32_t stackDepth = 0; // likewise
    std::string where, masks;
};

// Numbers since the start of the watch.
struct WatchTotals {
    int64_t calls = 0;
    int64_t matched = 0; // those that meet the conditions
    int64_t dropped = 0; // of these, without room in the agent
    int64_t failed = 0;  // of these, not to be printed: memory or stack ran out
};

// What a read brings.
struct WatchNews {
    WatchTotals totals;
    bool complete = false; // as many events as were wanted are there; no more will come
    int waiting = 0;       // events that are left for the next read
    std::vector<WatchedCall> calls;
    std::vector<MethodSums> methods;
};

class WatchClient {
public:
    // Without a read for so long the agent ends the watch.
    static constexpr int LeaseMs = 10000;

    explicit WatchClient(AgentClient client) : client(std::move(client)) {}

    // Answers when the loaded classes are woven: how many there are.
    int start(const WatchRequest& request);
    WatchNews read(int mostEvents);
    void stop();

private:
    AgentClient client;
    int32_t watch = 0;
};

} // namespace vdk
