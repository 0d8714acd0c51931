#include "db/Progress.h"

#include "core/ground/Logger.h"
#include "core/ground/Options.h"
#include "core/ground/ZString.h"

#include <sys/socket.h>

namespace {
// Keep in sync with com.vandrik.runtime.Protocol.
constexpr long PACKET_MAGIC = 123456789;
constexpr int PACKET_PROGRESS = 100600;
constexpr int PACKET_CALLS_PROGRESS = 105910;

// The control channel is big-endian, unlike the tables.
unsigned char* putBigEndian(unsigned char* to, unsigned long value, int bytes) {
    for (int i = bytes - 1; i >= 0; i--) {
        *to++ = static_cast<unsigned char>(value >> (8 * i));
    }
    return to;
}

// A client that is gone, or takes nothing more, must not stop the work: the packet is lost.
void sendQuietly(int socket, const unsigned char* packet, size_t length) {
    const ssize_t ignored = send(socket, packet, length, MSG_NOSIGNAL | MSG_DONTWAIT);
    static_cast<void>(ignored);
}
} // namespace

void Progress::updateProgressImpl(int percent) {
    if (Options::isDebug("progress")) {
        Logger::message(ZString("snapshot progress: ") + longToString(percent));
    }
    Logger::assertTrue(percent >= 0 && percent <= 99, VDK_HERE);
    if (socketDescriptor == 0) {
        return;
    }
    unsigned char packet[16];
    unsigned char* to = putBigEndian(packet, PACKET_MAGIC, 8);
    to = putBigEndian(to, PACKET_PROGRESS, 4);
    putBigEndian(to, static_cast<unsigned long>(percent), 4);
    sendQuietly(socketDescriptor, packet, sizeof(packet));
}

void sendCallsProgress(int socket, int done, int total, long longestStopNs) {
    if (socket == 0) {
        return;
    }
    unsigned char packet[28];
    unsigned char* to = putBigEndian(packet, PACKET_MAGIC, 8);
    to = putBigEndian(to, PACKET_CALLS_PROGRESS, 4);
    to = putBigEndian(to, static_cast<unsigned long>(done), 4);
    to = putBigEndian(to, static_cast<unsigned long>(total), 4);
    putBigEndian(to, static_cast<unsigned long>(longestStopNs), 8);
    sendQuietly(socket, packet, sizeof(packet));
}
