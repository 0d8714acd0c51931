// One connection to an agent's control port: framing, primitive types, errors.
//
// All numbers are big-endian. A packet is a magic long, a type int and fields in a fixed order for
// each type; there is no length, so an answer that does not fit ends the session with an error. One
// connection carries one request unless it is opened as a sequence.
#pragma once

#include "client/agent/Connection.h"

#include <cstdint>
#include <optional>
#include <string>

namespace vdk {

// A request under construction; sent as one piece.
class PacketWriter {
public:
    explicit PacketWriter(int type);

    PacketWriter& writeInt(int32_t value);
    PacketWriter& writeLong(int64_t value);
    PacketWriter& writeBoolean(bool value);
    PacketWriter& writeBytes(const std::string& bytes); // without their number
    // Nothing is the null string.
    PacketWriter& writeString(const std::optional<std::string>& text);

    const std::string& bytes() const { return data; }

private:
    std::string data;
};

class Session {
public:
    // Longest string that is accepted from an agent, in bytes.
    static constexpr int32_t MaxStringLength = 64 << 20;

    explicit Session(Connection& connection) : connection(connection) {}

    void send(const PacketWriter& packet);

    // Packets between these two share the connection; neither is answered.
    void startSequence();
    void endSequence();

    int32_t readInt();
    int64_t readLong();
    bool readBoolean();
    std::optional<std::string> readString();
    std::string readStringNotNull();
    void readBytes(void* data, size_t size) { connection.read(data, size); }

    // The type of the next packet. An error packet, a wrong magic and, with readHeader(expected),
    // another type are thrown as ClientError: "agent.error" with the agent's text,
    // "agent.incompatible" when the agent does not know the packet or sends another one,
    // "agent.data" for what is not the protocol at all.
    int32_t readHeader();
    void readHeader(int32_t expected);
    void expectOk();

    Connection& stream() { return connection; }

private:
    Connection& connection;
};

// A request on a connection of its own, which the agent has taken; what it answers is read from the
// session.
struct Request {
    Request(const Endpoint& endpoint, int connectMs, int answerMs, const PacketWriter& packet)
        : connection(endpoint, connectMs), session(connection) {
        connection.setTimeout(answerMs);
        session.send(packet);
        session.expectOk();
    }

    Connection connection;
    Session session;
};

} // namespace vdk
