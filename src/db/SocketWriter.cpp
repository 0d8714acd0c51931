#include "db/SocketWriter.h"

#include "platform/Platform.h"

#include <cerrno>
#include <poll.h>
#include <sys/socket.h>

namespace {
const long NS_PER_MS = 1000000;
} // namespace

SocketWriter::SocketWriter(int socket, int sendTimeoutMs, int bytesPerMs)
    : AbstractWriter(BUFFER_SIZE, true, socket), timeoutMs(sendTimeoutMs),
      leastBytesPerMs(bytesPerMs), sentBytes(0), waitedNs(0), readerGone(false) {}

SocketWriter::~SocketWriter() {
    flush();
}

void SocketWriter::flush() {
    const unsigned char* from = buffer;
    int left = used;
    used = 0;
    while (left > 0 && !readerGone) {
        const ssize_t sent =
            send(fileDescriptor, from, static_cast<size_t>(left), MSG_NOSIGNAL | MSG_DONTWAIT);
        if (sent > 0) {
            from += sent;
            left -= static_cast<int>(sent);
            sentBytes += sent;
        } else if (sent < 0 && errno == EINTR) {
            continue;
        } else if (sent < 0 && (errno == EAGAIN || errno == EWOULDBLOCK)) {
            readerGone = !waitUntilWritable();
        } else {
            readerGone = true;
        }
        if (readerGone) {
            shutdown(fileDescriptor, SHUT_RDWR);
        }
    }
}

bool SocketWriter::waitUntilWritable() {
    const long startNs = Platform::monotonicTimeNs();
    const long allowedNs = (timeoutMs + sentBytes / leastBytesPerMs) * NS_PER_MS - waitedNs;
    const long limitNs = allowedNs < timeoutMs * NS_PER_MS ? allowedNs : timeoutMs * NS_PER_MS;
    pollfd wanted = {};
    wanted.fd = fileDescriptor;
    wanted.events = POLLOUT;
    int ready = 0;
    long spentNs = 0;
    do {
        const long leftMs = (limitNs - spentNs) / NS_PER_MS;
        ready = leftMs <= 0 ? 0 : poll(&wanted, 1, static_cast<int>(leftMs));
        spentNs = Platform::monotonicTimeNs() - startNs;
    } while (ready < 0 && errno == EINTR);
    waitedNs += spentNs;
    return ready > 0;
}
