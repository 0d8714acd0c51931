#include "client/agent/AgentClient.h"

#include "client/agent/Inflate.h"
#include "client/agent/Protocol.h"
#include "client/console/Errors.h"
#include "db/ByteReader.h"

#include <algorithm>
#include <vector>

namespace vdk {

using namespace protocol;

namespace {

// That an agent may say it has not done.
constexpr int32_t MostParts = 100;

AgentInfo readInfo(Session& session) {
    session.expectOk();
    AgentInfo info;
    info.protocolVersion = session.readInt();
    if (info.protocolVersion != Version) {
        throw ClientError(ExitCode::AgentFailed, "agent.incompatible",
                          std::string(INCOMPATIBLE_AGENT_MESSAGE) + "\nProtocol version " +
                              std::to_string(info.protocolVersion) + ", expected " +
                              std::to_string(Version));
    }
    info.product = session.readStringNotNull();
    info.capabilities = session.readLong();
    info.sessionName = session.readStringNotNull();
    info.sessionId = session.readLong();
    info.hostId = session.readStringNotNull();
    info.snapshotDirectory = session.readStringNotNull();
    info.pid = session.readInt();
    info.telemetryLimit = session.readInt();
    return info;
}

[[noreturn]] void failTransfer(const std::string& detail) {
    throw ClientError(ExitCode::BadInput, "agent.data",
                      std::string(INCORRECT_DATA_FROM_AGENT_MESSAGE) + "\n" + detail);
}

void report(const ProgressCallback& progress, int64_t done, int64_t length) {
    if (progress && length > 0) {
        progress(static_cast<int>(double(done) / double(length) * 100));
    }
}

// Up to the answer to a request that rewrites classes, and tells of it.
void awaitClasses(Connection& connection, Session& session, const ProgressCallback& progress) {
    while (true) {
        int32_t type = session.readHeader();
        if (type == PACKET_OK_RESP) {
            return;
        }
        if (type != PACKET_CALLS_PROGRESS) {
            failTransfer("Wrong packet type: " + std::to_string(type) +
                         " while classes are rewritten");
        }
        int32_t done = session.readInt();
        int32_t total = session.readInt();
        session.readLong(); // the longest stop so far
        if (done < 0 || done > total) {
            failTransfer("Progress of " + std::to_string(done) + " of " + std::to_string(total));
        }
        // It gets on: another limit's worth of time.
        connection.setTimeout(AgentClient::LongTimeoutMs);
        report(progress, done, total);
    }
}

// The bytes that a connection brings, as the table reader takes them. Losing the connection is a
// ClientError of the connection's own.
class ConnectionSource : public ByteSource {
public:
    ConnectionSource(Connection& connection, long mostBytes)
        : connection(connection), left(mostBytes), bytes(size_t(1) << 16) {}

    bool nextPiece(const unsigned char** piece, long* count) override {
        *piece = bytes.data();
        *count = long(connection.readSome(bytes.data(), bytes.size()));
        if (*count == 0) {
            connection.failClosed(); // the tables end with a mark
        }
        left -= *count;
        if (left < 0) {
            failTransfer("The tables seem to have no end");
        }
        return *count > 0;
    }
    long getTotalSize() const override { return -1; }
    const ZString& getErrorMessage() const override { return noError; }

private:
    Connection& connection;
    long left;
    std::vector<unsigned char> bytes;
    ZString noError;
};

} // namespace

AgentInfo AgentClient::info() {
    Connection connection(endpoint, timeoutMs);
    Session session(connection);
    session.send(PacketWriter(PACKET_GET_AGENT_INFO_REQ));
    return readInfo(session);
}

AgentInfo AgentClient::info(int64_t* status) {
    Connection connection(endpoint, timeoutMs);
    Session session(connection);
    session.startSequence();
    session.send(PacketWriter(PACKET_GET_AGENT_INFO_REQ));
    AgentInfo result = readInfo(session);
    session.send(PacketWriter(PACKET_GET_STATUS_REQ));
    session.expectOk();
    *status = session.readLong();
    session.endSequence();
    return result;
}

void AgentClient::command(int packet, int timeout) {
    Request(endpoint, timeoutMs, timeout, PacketWriter(packet));
}

AgentClient::PreparedClasses
AgentClient::prepareRecording(int recording, const std::string& only,
                              const std::optional<std::string>& filters,
                              const ProgressCallback& progress) {
    Connection connection(endpoint, timeoutMs);
    connection.setTimeout(LongTimeoutMs);
    Session session(connection);
    PacketWriter packet(PACKET_PREPARE_RECORDING_REQ);
    session.send(packet.writeInt(recording).writeString(only).writeString(filters));
    awaitClasses(connection, session, progress);
    PreparedClasses result;
    result.count = session.readInt();
    result.tookNs = session.readLong();
    result.longestStopNs = session.readLong();
    return result;
}

AgentClient::Detached AgentClient::detach(const ProgressCallback& progress) {
    Connection connection(endpoint, timeoutMs);
    connection.setTimeout(LongTimeoutMs);
    Session session(connection);
    session.send(PacketWriter(PACKET_DETACH_REQ));
    awaitClasses(connection, session, progress);
    Detached result;
    result.classes = session.readInt();
    session.readInt(); // those that failed: among the parts that were not done
    result.withWrappers = session.readInt();
    result.loaders = session.readInt();
    result.longestStopNs = session.readLong();
    int32_t count = session.readInt();
    if (count < 0 || count > MostParts) {
        failTransfer("Parts that were not done: " + std::to_string(count));
    }
    for (int32_t i = 0; i < count; i++) {
        result.notDone.push_back(session.readStringNotNull());
    }
    // The thread that answered ends with the connection.
    char rest = 0;
    connection.readSome(&rest, 1);
    return result;
}

void AgentClient::startCpuProfiling(int64_t mode, const std::optional<std::string>& filters,
                                    const std::optional<std::string>& wallTimes) {
    PacketWriter packet(PACKET_START_CPU_PROFILING_REQ);
    packet.writeLong(mode).writeString(filters).writeString(wallTimes);
    // Ahead of tracing the agent calibrates, if it has not yet.
    Request(endpoint, timeoutMs, mode & CPU_COUNTS_BIT ? LongTimeoutMs : timeoutMs, packet);
}

void AgentClient::startSampling(const std::string& sampler, int64_t mode,
                                const std::optional<std::string>& filters,
                                const std::optional<std::string>& wallTimes) {
    PacketWriter packet(PACKET_START_SAMPLING_REQ);
    packet.writeString(sampler).writeLong(mode).writeString(filters).writeString(wallTimes);
    Request(endpoint, timeoutMs, timeoutMs, packet);
}

void AgentClient::startWallSampling(const std::optional<std::string>& filters,
                                    const std::optional<std::string>& threads) {
    PacketWriter packet(PACKET_START_WALL_SAMPLING_REQ);
    packet.writeString(filters).writeString(threads);
    Request(endpoint, timeoutMs, timeoutMs, packet);
}

void AgentClient::stopCpuProfiling() {
    command(PACKET_STOP_CPU_PROFILING_REQ, timeoutMs);
}

void AgentClient::startAllocationRecording(int each, std::optional<int> sizeLimit, bool byClass) {
    Connection connection(endpoint, timeoutMs);
    connection.setTimeout(LongTimeoutMs); // after an attach the classes are rewritten first
    Session session(connection);
    PacketWriter packet(PACKET_START_ALLOCATION_RECORDING_REQ);
    packet.writeBoolean(true).writeInt(each);
    packet.writeBoolean(sizeLimit.has_value()).writeInt(sizeLimit.value_or(0));
    session.send(packet.writeBoolean(byClass));
    session.expectOk();
}

void AgentClient::startSampledAllocationRecording(int intervalBytes, bool byClass) {
    Connection connection(endpoint, timeoutMs);
    Session session(connection);
    PacketWriter packet(PACKET_START_SAMPLED_ALLOCATION_RECORDING_REQ);
    session.send(packet.writeInt(intervalBytes).writeBoolean(byClass));
    session.expectOk();
}

void AgentClient::stopAllocationRecording() {
    command(PACKET_STOP_ALLOCATION_RECORDING_REQ, timeoutMs);
}

void AgentClient::switchMonitorProfiling(bool on) {
    command(on ? PACKET_START_MONITOR_PROFILING : PACKET_STOP_MONITOR_PROFILING, timeoutMs);
}

void AgentClient::switchExceptionTelemetry(bool on) {
    // Where the JVM sends no events of them, classes are rewritten.
    command(on ? PACKET_ENABLE_EXCEPTION_TELEMETRY : PACKET_DISABLE_EXCEPTION_TELEMETRY,
            LongTimeoutMs);
}

void AgentClient::advanceGeneration(const std::string& description) {
    PacketWriter packet(PACKET_ADVANCE_GENERATION_REQ);
    Request(endpoint, timeoutMs, LongTimeoutMs, packet.writeString(description));
}

void AgentClient::clear(ProfilingData data) {
    static const struct {
        ProfilingData data;
        int packet;
    } packets[] = {
        {ProfilingData::Cpu, PACKET_CLEAR_CPU_DATA},
        {ProfilingData::Monitors, PACKET_CLEAR_MONITOR_DATA},
        {ProfilingData::Allocations, PACKET_CLEAR_ALLOCATION_DATA},
        {ProfilingData::Exceptions, PACKET_CLEAR_EXCEPTIONS},
    };
    for (const auto& entry : packets) {
        if (entry.data == data) {
            command(entry.packet, LongTimeoutMs); // may walk the heap for tags
        }
    }
}

void AgentClient::freeUnusedRows() {
    command(PACKET_FREE_UNUSED_ROWS, timeoutMs);
}

void AgentClient::retransformLoadedClasses(const std::optional<std::string>& filterFile) {
    PacketWriter packet(PACKET_RETRANSFORM_CLASSES_LOADED_BEFORE_AGENT_WAS_ATTACHED);
    packet.writeBoolean(filterFile.has_value()).writeString(filterFile);
    Request(endpoint, timeoutMs, LongTimeoutMs, packet);
}

AgentClient::GcResult AgentClient::forceGc() {
    Request request(endpoint, timeoutMs, LongTimeoutMs, PacketWriter(PACKET_FORCE_GC_REQ));
    GcResult result;
    result.usedBefore = request.session.readLong();
    result.usedAfter = request.session.readLong();
    return result;
}

std::string AgentClient::statistics() {
    return Request(endpoint, timeoutMs, timeoutMs, PacketWriter(PACKET_GET_DATABASE_STATISTICS))
        .session.readStringNotNull();
}

std::string AgentClient::triggers() {
    return Request(endpoint, timeoutMs, timeoutMs, PacketWriter(PACKET_GET_TRIGGERS))
        .session.readStringNotNull();
}

// Method listeners have loaded classes rewritten.
void AgentClient::setTriggers(const std::string& text, bool append) {
    PacketWriter packet(PACKET_SET_TRIGGERS);
    packet.writeString(text).writeBoolean(append);
    Request(endpoint, timeoutMs, LongTimeoutMs, packet);
}

std::string AgentClient::threadDump() {
    return Request(endpoint, timeoutMs, LongTimeoutMs, PacketWriter(PACKET_GET_JVM_THREAD_DUMP_REQ))
        .session.readStringNotNull();
}

std::string AgentClient::captureSnapshot(int64_t flags, const std::string& directory,
                                         const std::string& pattern,
                                         const ProgressCallback& progress) {
    Connection connection(endpoint, timeoutMs);
    connection.setTimeout(LongTimeoutMs);
    Session session(connection);
    PacketWriter packet(PACKET_CAPTURE_SNAPSHOT_REQ);
    session.send(packet.writeLong(flags).writeString(directory).writeString(pattern));
    int32_t furthest = 0;
    while (true) {
        int32_t type = session.readHeader();
        if (type == PACKET_OK_RESP) {
            return session.readStringNotNull();
        }
        if (type != PACKET_PROGRESS) {
            failTransfer("Wrong packet type: " + std::to_string(type) +
                         " while a snapshot is captured");
        }
        int32_t percent = session.readInt();
        if (percent < 0 || percent > 100) {
            failTransfer("Progress of " + std::to_string(percent) + " percent");
        }
        if (percent > furthest) {
            furthest = percent;
            connection.setTimeout(LongTimeoutMs); // it gets on: another limit's worth of time
        }
        if (progress) {
            progress(percent);
        }
    }
}

void AgentClient::receivePlain(Session& session, int64_t length, OutputFile& out,
                               const ProgressCallback& progress) {
    std::vector<char> buffer(1 << 16);
    for (int64_t done = 0; done < length;) {
        size_t count = size_t(std::min<int64_t>(length - done, int64_t(buffer.size())));
        session.readBytes(buffer.data(), count);
        out.write(buffer.data(), count);
        done += int64_t(count);
        report(progress, done, length);
    }
}

// What deflate makes of a chunk is hardly larger than the chunk.
static constexpr int64_t MostPackedBytes = 2 * TRANSFER_UNCOMPRESSED_CHUNK_SIZE;

// Each chunk of the file is deflated by itself and comes in blocks, an int 0 behind the last.
void AgentClient::receiveChunks(Session& session, int64_t length, OutputFile& out,
                                const ProgressCallback& progress) {
    std::vector<char> block(TRANSFER_COMPRESSED_CHUNK_SIZE);
    std::vector<char> chunk(TRANSFER_UNCOMPRESSED_CHUNK_SIZE);
    for (int64_t done = 0; done < length;) {
        size_t expected = size_t(std::min<int64_t>(length - done, int64_t(chunk.size())));
        Inflater inflater(chunk.data(), expected);
        int64_t packed = 0;
        while (int32_t size = session.readInt()) {
            packed += size;
            if (size < 0 || size > TRANSFER_COMPRESSED_CHUNK_SIZE || packed > MostPackedBytes) {
                failTransfer("Invalid block size: " + std::to_string(size));
            }
            session.readBytes(block.data(), size_t(size));
            if (!inflater.add(block.data(), size_t(size))) {
                failTransfer("A compressed block is damaged: " + inflater.error());
            }
        }
        if (!inflater.isComplete()) {
            failTransfer("A compressed chunk of " + std::to_string(expected) + " bytes gave " +
                         std::to_string(inflater.produced()));
        }
        out.write(chunk.data(), expected);
        done += int64_t(expected);
        report(progress, done, length);
    }
}

int64_t AgentClient::downloadSnapshot(const std::string& path, bool compressed, OutputFile& out,
                                      const ProgressCallback& progress) {
    PacketWriter packet(compressed ? PACKET_TRANSFER_SNAPSHOT_COMPRESSED_REQ
                                   : PACKET_TRANSFER_SNAPSHOT_REQ);
    packet.writeString(path);
    Request request(endpoint, timeoutMs, std::max(timeoutMs, 60000), packet);
    int64_t length = request.session.readLong();
    if (length < 0) {
        failTransfer("Negative file length: " + std::to_string(length));
    }
    out.expectSize(length);
    request.connection.expectMuch();
    if (compressed) {
        receiveChunks(request.session, length, out, progress);
    } else {
        receivePlain(request.session, length, out, progress);
    }
    return length;
}

AgentClient::KnownProbes AgentClient::probes() {
    Request request(endpoint, timeoutMs, timeoutMs, PacketWriter(PACKET_GET_PROBES));
    KnownProbes known;
    while (const std::optional<std::string> name = request.session.readString()) {
        const int status = request.session.readInt();
        (status == 0 ? known.available : known.registered).push_back(*name);
    }
    return known;
}

static PacketWriter probesPacket(const std::vector<std::string>& names, int status) {
    PacketWriter packet(PACKET_SET_PROBES);
    packet.writeInt(int32_t(names.size()));
    for (const std::string& name : names) {
        packet.writeString(name).writeInt(status);
    }
    return packet;
}

// Both rewrite loaded classes.
void AgentClient::registerProbes(const std::vector<std::string>& names) {
    Request(endpoint, timeoutMs, LongTimeoutMs, probesPacket(names, 1));
}

void AgentClient::unregisterProbes(const std::vector<std::string>& names) {
    Request(endpoint, timeoutMs, LongTimeoutMs, probesPacket(names, 0));
}

void AgentClient::registerProbesByBytecode(const std::vector<std::string>& classFiles) {
    PacketWriter packet(PACKET_REGISTER_AND_LOAD_PROBES_BY_BYTECODE);
    packet.writeInt(int32_t(classFiles.size()));
    for (const std::string& bytes : classFiles) {
        packet.writeInt(int32_t(bytes.size())).writeBytes(bytes);
    }
    Request(endpoint, timeoutMs, LongTimeoutMs, packet);
}

TableFetcher::TableFetcher(AgentClient& client, long mostBytes)
    : client(client), mostBytes(mostBytes), db(std::make_unique<DB>(-1, -1)), reader(db.get()) {}

bool TableFetcher::isFollowed(int slot) const {
    return followsAll || std::any_of(followed.begin(), followed.end(),
                                     [slot](const auto& table) { return table.second == slot; });
}

void TableFetcher::findFollowed() {
    PacketWriter packet(PACKET_UPDATE_CUSTOM_TABLE_INFO);
    packet.writeInt(FIRST_USER_TABLE);
    Request request(client.address(), client.timeout(), client.timeout(), packet);
    Session& session = request.session;
    for (int slot = session.readInt(); slot != -1; slot = session.readInt()) {
        std::string description = session.readStringNotNull();
        if (!db->getUserTable(slot) && !db->createUserTableInSlot(slot, description.c_str())) {
            failTransfer("User table " + std::to_string(slot) + " has no readable description");
        }
        lastKnown = slot;
        auto found = followed.find(db->getUserTable(slot)->getName().c_str());
        if (found != followed.end()) {
            found->second = slot;
        }
    }
}

int TableFetcher::lastFollowed() const {
    int last = followsAll ? lastKnown : -1;
    for (const auto& table : followed) {
        last = std::max(last, table.second);
    }
    return last;
}

void TableFetcher::fetch(int mask) {
    if (isFollowed(-1)) {
        findFollowed();
    }
    const int last = lastFollowed();
    PacketWriter packet(PACKET_UPDATE_DATABASE_TABLES);
    packet.writeInt(mask);
    for (int slot = 0; slot < CORE_TABLE_COUNT; slot++) {
        if (mask >> slot & 1) {
            packet.writeInt(reader.getStamps()[slot]);
        }
    }
    // The agent sends every user table up to the last that is named: of those that are not
    // wanted nothing is new enough.
    for (int slot = FIRST_USER_TABLE; slot <= last; slot++) {
        packet.writeInt(slot).writeInt(isFollowed(slot) ? reader.getStamps()[slot] : INT32_MAX);
    }
    packet.writeInt(-1);
    Request request(client.address(), client.timeout(), std::max(client.timeout(), 60000), packet);
    request.connection.expectMuch();
    ConnectionSource source(request.connection, mostBytes);
    ByteReader input(source);
    try {
        reader.readSocketStream(input);
    } catch (const BadInputException& e) {
        failTransfer(e.message.c_str());
    }
}

} // namespace vdk
