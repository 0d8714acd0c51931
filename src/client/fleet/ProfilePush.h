// Profiles on their way to a store: kept while it cannot be reached, up to a limit, and sent again
// with growing pauses. The system's curl does the sending: TLS, its roots of trust and proxies are
// those of the machine, and are kept up to date with it.
#pragma once

#include <chrono>
#include <cstdint>
#include <ctime>
#include <deque>
#include <string>
#include <vector>

namespace vdk {

enum class PushForm { Pyroscope, Otlp };

struct PushTarget {
    std::string url;         // of the store, without a path of ours
    std::string credentials; // "Bearer TOKEN" or "Basic USER:PASSWORD"; empty without any
    PushForm form = PushForm::Pyroscope;
};

struct OutgoingProfile {
    std::string name; // "app{key=value,...}", where the body does not tell
    int64_t fromSeconds = 0, untilSeconds = 0;
    std::string body; // pprof, or a request of OTLP
};

struct PushCounts {
    int64_t sent = 0, sentBytes = 0;
    int64_t refused = 0;  // by the store, for good
    int64_t rejected = 0; // parts of what was sent, as a receiver of OTLP has it: single values
    int64_t dropped = 0;  // for want of room while the store could not be reached
    int64_t failures = 0;
};

class ProfilePush {
public:
    using Clock = std::chrono::steady_clock;
    static constexpr size_t MostBytes = 32 << 20;

    // Throws ClientError: Usage for a URL or credentials that are none, CannotRun "push.curl" where
    // there is no curl that would do.
    ProfilePush(PushTarget target, int timeoutMs);

    void add(OutgoingProfile profile);
    // Sends what is due. The text of a new trouble; empty while all is well, or as before.
    std::string sendDue(Clock::time_point now);
    bool isEmpty() const { return waiting.empty(); }
    // Forgets the pause before the next try.
    void hurry() { next = {}; }
    const PushCounts& counts() const { return told; }

private:
    enum class Outcome { Sent, Refused, Failed };
    Outcome send(const OutgoingProfile& profile, std::string& why);
    // What the receiver says of profiles that it took.
    void notePartialSuccess(const std::string& message, std::string& why);

    const PushTarget target;
    const int timeoutMs;
    std::deque<OutgoingProfile> waiting;
    size_t waitingBytes = 0;
    Clock::time_point next;
    std::chrono::milliseconds pause{0};
    std::chrono::milliseconds asked{0}; // by the store's Retry-After
    std::string trouble;
    PushCounts told;
};

// What the Retry-After in the head of an answer asks for, a number of seconds or a time; 0 without
// one, and no more than an hour.
std::chrono::milliseconds retryAfter(const std::string& head, time_t now);
// As the query of a URL takes it.
std::string percentEncoded(const std::string& text);
// "name{key=value}" of a name and "key=value" texts; throws ClientError Usage for what the store
// would take apart in another way.
std::string profileName(const std::string& name, const std::vector<std::string>& tags);

} // namespace vdk
