#pragma once

#include "db/AbstractWriter.h"

// SocketWriter sends what is written to a connected socket. A reader that is gone is no error: the
// rest is dropped, and the Java side sees the closed connection. Other clients wait meanwhile, and
// the caller holds no lock. A reader counts as gone that takes nothing for SEND_TIMEOUT_MS, or has
// made the sender wait for longer than that beyond what the bytes it took need at the least speed.
// Its connection is shut down, so that it never takes a stream with a hole for a whole one.
class SocketWriter : public AbstractWriter {
public:
    static constexpr int BUFFER_SIZE = 8192;
    static constexpr int SEND_TIMEOUT_MS = 10000;
    static constexpr int LEAST_BYTES_PER_MS = 4;

    // The descriptor stays the caller's.
    explicit SocketWriter(int socket, int sendTimeoutMs = SEND_TIMEOUT_MS,
                          int bytesPerMs = LEAST_BYTES_PER_MS);
    ~SocketWriter() override;
    void flush() override;

private:
    bool waitUntilWritable();

    int timeoutMs;
    int leastBytesPerMs;
    long sentBytes;
    long waitedNs;
    bool readerGone;
};
