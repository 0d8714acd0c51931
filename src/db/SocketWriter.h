#pragma once

#include "db/AbstractWriter.h"

// SocketWriter sends what is written to a connected socket. A reader that is gone is no error: the
// rest is dropped, and the Java side sees the closed connection. The sender holds the agent's lock,
// for which threads of the application may be waiting. So a reader counts as gone that takes
// nothing for SEND_TIMEOUT_MS, or has made the sender wait for longer than that beyond what the
// bytes it took need at LEAST_BYTES_PER_MS. Its connection is shut down, so that it never takes a
// stream with a hole for a whole one.
class SocketWriter : public AbstractWriter {
public:
    static constexpr int BUFFER_SIZE = 8192;
    static constexpr int SEND_TIMEOUT_MS = 10000;
    static constexpr int LEAST_BYTES_PER_MS = 64;

    // The descriptor stays the caller's.
    explicit SocketWriter(int socket, int sendTimeoutMs = SEND_TIMEOUT_MS);
    ~SocketWriter() override;
    void flush() override;

private:
    bool waitUntilWritable();

    int timeoutMs;
    long sentBytes;
    long waitedNs;
    bool readerGone;
};
