// A byte stream to an agent with a limit on every wait: nothing here blocks for ever.
#pragma once

#include <cstddef>
#include <string>

namespace vdk {

// Where an agent listens.
struct Endpoint {
    std::string host = "127.0.0.1";
    int port = 0;

    std::string text() const { return host + ":" + std::to_string(port); }
};

class Connection {
public:
    // Connects within the time limit, which then holds for each single wait for data. Throws
    // ClientError: AgentFailed "agent.connect", TimedOut "agent.timeout".
    Connection(const Endpoint& endpoint, int timeoutMs);
    // Takes over a connected descriptor.
    Connection(int descriptor, int timeoutMs);
    ~Connection();
    Connection(const Connection&) = delete;
    Connection& operator=(const Connection&) = delete;

    void setTimeout(int milliseconds) { timeoutMs = milliseconds; }

    // Reads exactly `size` bytes. Throws ClientError: BadInput "agent.closed" when the stream ends
    // before, TimedOut when no byte came for the time limit, Aborted after SIGINT or SIGTERM.
    void read(void* data, size_t size);

    // Reads up to `size` bytes, at least one; 0 at the end of the stream.
    size_t readSome(void* data, size_t size);

    void write(const void* data, size_t size);

private:
    void waitFor(short events, const char* what);

    int descriptor;
    int timeoutMs;
    // Small reads (ints of tables) come from here.
    static constexpr size_t BufferSize = 1 << 16;
    std::string buffer;
    size_t position = 0;
};

} // namespace vdk
