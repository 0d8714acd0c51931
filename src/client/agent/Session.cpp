#include "client/agent/Session.h"

#include "client/agent/Protocol.h"
#include "client/console/Errors.h"
#include "client/console/Text.h"

namespace vdk {

using namespace protocol;

namespace {

[[noreturn]] void failData(const std::string& detail) {
    throw ClientError(ExitCode::BadInput, "agent.data",
                      std::string(INCORRECT_DATA_MESSAGE) + "\n" + detail);
}

[[noreturn]] void failIncompatible(const std::string& detail) {
    throw ClientError(ExitCode::AgentFailed, "agent.incompatible",
                      std::string(INCOMPATIBLE_AGENT_MESSAGE) + "\n" + detail,
                      "use the vdk and the agent library of one release");
}

} // namespace

PacketWriter::PacketWriter(int type) {
    writeLong(Magic).writeInt(type);
}

PacketWriter& PacketWriter::writeInt(int32_t value) {
    for (int shift = 24; shift >= 0; shift -= 8) {
        data += static_cast<char>(static_cast<uint32_t>(value) >> shift);
    }
    return *this;
}

PacketWriter& PacketWriter::writeLong(int64_t value) {
    writeInt(static_cast<int32_t>(static_cast<uint64_t>(value) >> 32));
    return writeInt(static_cast<int32_t>(value));
}

PacketWriter& PacketWriter::writeBoolean(bool value) {
    data += value ? '\1' : '\0';
    return *this;
}

PacketWriter& PacketWriter::writeBytes(const std::string& bytes) {
    data += bytes;
    return *this;
}

PacketWriter& PacketWriter::writeString(const std::optional<std::string>& text) {
    if (!text) {
        return writeInt(-1);
    }
    writeInt(static_cast<int32_t>(text->size()));
    data += *text;
    return *this;
}

void Session::send(const PacketWriter& packet) {
    connection.write(packet.bytes().data(), packet.bytes().size());
}

void Session::startSequence() {
    send(PacketWriter(PACKET_PACKET_SEQUENCE_START));
}

void Session::endSequence() {
    send(PacketWriter(PACKET_PACKET_SEQUENCE_END));
}

int32_t Session::readInt() {
    unsigned char bytes[4];
    connection.read(bytes, sizeof(bytes));
    uint32_t value = 0;
    for (unsigned char byte : bytes) {
        value = value << 8 | byte;
    }
    return static_cast<int32_t>(value);
}

int64_t Session::readLong() {
    uint64_t high = static_cast<uint32_t>(readInt());
    return static_cast<int64_t>(high << 32 | static_cast<uint32_t>(readInt()));
}

bool Session::readBoolean() {
    char byte;
    connection.read(&byte, 1);
    return byte == 1;
}

std::optional<std::string> Session::readString() {
    int32_t length = readInt();
    if (length == -1) {
        return std::nullopt;
    }
    if (length < 0) {
        failData("Negative string length: " + std::to_string(length));
    }
    if (length > MaxStringLength) {
        failData("Cannot allocate " + std::to_string(length) + " bytes");
    }
    std::string text(size_t(length), '\0');
    connection.read(text.data(), text.size());
    return text;
}

std::string Session::readStringNotNull() {
    std::optional<std::string> text = readString();
    if (!text) {
        failData("Unexpected null string");
    }
    return *text;
}

int32_t Session::readHeader() {
    int64_t magic = readLong();
    if (magic != Magic) {
        throw ClientError(ExitCode::BadInput, "agent.data",
                          "Invalid header magic number:" + std::to_string(magic),
                          "the port does not belong to a profiler agent");
    }
    int32_t type = readInt();
    if (type == PACKET_ERROR_RESP) {
        std::string text = readStringNotNull();
        if (startsWith(text, "Unknown packet type:")) {
            failIncompatible(text);
        }
        throw ClientError(ExitCode::AgentFailed, "agent.error", text);
    }
    return type;
}

void Session::readHeader(int32_t expected) {
    int32_t type = readHeader();
    if (type != expected) {
        failIncompatible("Wrong packet type: " + std::to_string(type) + ", expected " +
                         std::to_string(expected));
    }
}

void Session::expectOk() {
    readHeader(PACKET_OK_RESP);
}

} // namespace vdk
