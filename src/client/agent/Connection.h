// A byte stream to an agent with a limit on every wait and on the whole exchange: nothing here
// lasts for ever, whatever the other side does.
#pragma once

#include "client/console/Descriptor.h"

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>

namespace vdk {

// Where an agent listens.
struct Endpoint {
    std::string host = "127.0.0.1";
    int port = 0;
    // The network namespace of that host; none is this process's own.
    std::shared_ptr<Descriptor> network = nullptr;
    // The user to connect as; -1 is this process's own. In a user namespace root of this machine is
    // nobody whom an agent knows.
    long uid = -1;
    // The process that listens there, if that is known: tells why nobody answers any more.
    int pid = 0;

    std::string text() const { return host + ":" + std::to_string(port); }
};

class Connection {
public:
    // Connects within the time limit, which then holds for each single wait for data, and for the
    // exchange as a whole. Throws ClientError: AgentFailed "agent.connect", TimedOut
    // "agent.timeout".
    Connection(const Endpoint& endpoint, int timeoutMs);
    // Takes over a connected descriptor.
    Connection(int descriptor, int timeoutMs);
    ~Connection();
    Connection(const Connection&) = delete;
    Connection& operator=(const Connection&) = delete;

    // Both limits, from now on.
    void setTimeout(int milliseconds);
    // For answers without end in sight: bytes that arrive give the exchange more time, at a rate
    // that no working network falls below.
    void expectMuch() { paceBytesPerMs = SlowestBytesPerMs; }

    // Reads exactly `size` bytes. Throws ClientError: BadInput "agent.closed" when the stream ends
    // before, TimedOut when no byte came for the time limit or the exchange takes too long, Aborted
    // after SIGINT or SIGTERM.
    void read(void* data, size_t size);

    // Reads up to `size` bytes, at least one; 0 at the end of the stream.
    size_t readSome(void* data, size_t size);

    void write(const void* data, size_t size);

    // The stream has ended where more must come: because the process has, or "agent.closed".
    [[noreturn]] void failClosed();

private:
    using Clock = std::chrono::steady_clock;
    static constexpr int SlowestBytesPerMs = 16;
    static constexpr int LongestWaitMs = 200;

    void waitFor(short events, const char* what);
    void checkExchange(const char* what);
    [[noreturn]] void failTimeout(const char* what, const char* how);
    [[noreturn]] void failLost(int error);

    int descriptor;
    int pid = 0;
    int timeoutMs;
    int paceBytesPerMs = 0;
    Clock::time_point deadline;
    // Small reads (ints of tables) come from here.
    static constexpr size_t BufferSize = 1 << 16;
    std::string buffer;
    size_t position = 0;
};

} // namespace vdk
