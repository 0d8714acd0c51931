#include "client/agent/AgentClient.h"

#include "DbBuilder.h"
#include "Expect.h"
#include "FakeAgent.h"
#include "SourceFolder.h"
#include "TempDir.h"
#include "client/agent/Protocol.h"
#include "client/profile/Profile.h"
#include "db/SnapshotCommon.h"
#include "db/SocketWriter.h"

#include <cstdio>
#include <gtest/gtest.h>
#include <memory>
#include <optional>
#include <regex>
#include <sys/wait.h>
#include <unistd.h>
#include <vector>
#include <zlib.h>

using namespace vdk;
using namespace vdk::protocol;

namespace {

// For answers that never come, and for those that do: the machine may be busy.
constexpr int ShortTimeoutMs = 300;
constexpr int LongTimeoutMs = 120000;

// The statistics text, the simplest answer, from an agent that sends these bytes.
std::string statisticsFrom(const std::string& bytes) {
    FakeAgent agent = FakeAgent::answering(bytes);
    return AgentClient(agent.endpoint, LongTimeoutMs).statistics();
}

std::string deflateRaw(const std::string& data) {
    z_stream stream = {};
    deflateInit2(&stream, Z_DEFAULT_COMPRESSION, Z_DEFLATED, -MAX_WBITS, 8, Z_DEFAULT_STRATEGY);
    std::string out(data.size() + 1000, '\0');
    stream.next_in = reinterpret_cast<Bytef*>(const_cast<char*>(data.data()));
    stream.avail_in = uInt(data.size());
    stream.next_out = reinterpret_cast<Bytef*>(out.data());
    stream.avail_out = uInt(out.size());
    deflate(&stream, Z_FINISH);
    out.resize(stream.total_out);
    deflateEnd(&stream);
    return out;
}

std::string noise(size_t size) {
    std::string data(size, '\0');
    uint32_t state = 12345;
    for (char& c : data) {
        c = char((state = state * 1664525 + 1013904223) >> 24);
    }
    return data;
}

// The compressed transfer of a file as the agent sends it, in blocks of at most blockSize bytes.
std::string compressedTransfer(const std::string& file, size_t blockSize) {
    Answer answer;
    answer.ok().longInteger(int64_t(file.size()));
    for (size_t at = 0; at < file.size(); at += TRANSFER_UNCOMPRESSED_CHUNK_SIZE) {
        std::string packed = deflateRaw(file.substr(at, TRANSFER_UNCOMPRESSED_CHUNK_SIZE));
        for (size_t block = 0; block < packed.size(); block += blockSize) {
            answer.text(packed.substr(block, blockSize)); // int length, bytes
        }
        answer.integer(0);
    }
    return answer.data;
}

std::string fetch(const std::string& answer, bool compressed, TempDir& dir) {
    FakeAgent agent = FakeAgent::answering(answer);
    OutputFile out(dir.file("out"));
    AgentClient(agent.endpoint, LongTimeoutMs)
        .downloadSnapshot("/x.snapshot", compressed, out, nullptr);
    out.commit();
    return TempDir::read(dir.file("out"));
}

} // namespace

TEST(AgentClient, readsAnAnswer) {
    EXPECT_EQ(statisticsFrom(Answer().ok().text("tables").data), "tables");
}

TEST(AgentClient, everyBadAnswerIsAnErrorOfItsOwn) {
    std::string half = Answer().ok().text("tables").data;
    static const struct {
        const char* what;
        std::string bytes;
        const char* word;
        const char* message; // part of it
    } cases[] = {
        {"garbage", "HTTP/1.1 400 Bad Request\r\n\r\n", "agent.data",
         "Invalid header magic number:"},
        {"closed at once", "", "agent.closed", "closed the connection"},
        {"half a packet", half.substr(0, half.size() - 3), "agent.closed", "closed the connection"},
        {"half a header", half.substr(0, 6), "agent.closed", "closed the connection"},
        {"huge length", Answer().ok().integer(0x7fffffff).data, "agent.data",
         "Cannot allocate 2147483647 bytes"},
        {"negative length", Answer().ok().integer(-5).data, "agent.data",
         "Negative string length: -5"},
        {"null", Answer().ok().integer(-1).data, "agent.data", "Unexpected null string"},
        {"an error", Answer().header(PACKET_ERROR_RESP).text("cannot: no").data, "agent.error",
         "cannot: no"},
        {"unknown packet",
         Answer().header(PACKET_ERROR_RESP).text("Unknown packet type: 5. Reason").data,
         "agent.incompatible", "Unknown packet type: 5"},
        {"wrong type", Answer().header(12345).data, "agent.incompatible",
         "Wrong packet type: 12345, expected 1"},
    };
    for (const auto& c : cases) {
        std::string message;
        EXPECT_EQ(wordOf([&] { statisticsFrom(c.bytes); }, &message), c.word) << c.what;
        EXPECT_NE(message.find(c.message), std::string::npos) << c.what << ": " << message;
    }
}

TEST(AgentClient, incompatibleAgentIsToldInTheProtocolsWords) {
    std::string message;
    wordOf([&] { statisticsFrom(Answer().header(0).text("Unknown packet type: 7").data); },
           &message);
    EXPECT_EQ(message, std::string(INCOMPATIBLE_AGENT_MESSAGE) + "\nUnknown packet type: 7");
}

TEST(AgentClient, silentAgentTimesOut) {
    FakeAgent agent([](int descriptor, int) { FakeAgent::readExactly(descriptor, 1 << 20); });
    AgentClient client(agent.endpoint, ShortTimeoutMs);
    EXPECT_EQ(wordOf([&] { client.statistics(); }), "agent.timeout");
}

TEST(AgentClient, answerThatTricklesForEverTimesOut) {
    FakeAgent agent([](int descriptor, int) {
        FakeAgent::sendAll(descriptor, Answer().ok().integer(1 << 20).data);
        for (int i = 0; i < 2000 && send(descriptor, "x", 1, MSG_NOSIGNAL) == 1; i++) {
            usleep(20000);
        }
    });
    AgentClient client(agent.endpoint, ShortTimeoutMs);
    EXPECT_EQ(wordOf([&] { client.statistics(); }), "agent.timeout");
}

TEST(AgentClient, snapshotThatCannotFitIsNotBegun) {
    FakeAgent agent = FakeAgent::answering(Answer().ok().longInteger(int64_t(1) << 60).data);
    TempDir dir;
    OutputFile out(dir.file("out"));
    AgentClient client(agent.endpoint, LongTimeoutMs);
    EXPECT_EQ(wordOf([&] { client.downloadSnapshot("/x", false, out, nullptr); }), "output.space");
}

TEST(AgentClient, processThatHasEndedIsNamed) {
    int pid = fork();
    if (pid == 0) {
        _exit(0);
    }
    waitpid(pid, nullptr, 0);
    UnheardPort port;
    port.endpoint.pid = pid;
    EXPECT_EQ(wordOf([&] { AgentClient(port.endpoint, LongTimeoutMs).statistics(); }),
              "target.ended");
}

TEST(AgentClient, portWhereNobodyListensIsRefused) {
    UnheardPort port;
    EXPECT_EQ(wordOf([&] { AgentClient(port.endpoint, LongTimeoutMs).statistics(); }),
              "agent.connect");
}

TEST(AgentClient, infoAndStatusShareOneSequence) {
    std::string requests;
    auto agent = std::make_unique<FakeAgent>([&](int descriptor, int connection) {
        ASSERT_EQ(connection, 0);
        requests += FakeAgent::readExactly(descriptor, 24); // start, info
        FakeAgent::sendAll(descriptor, Answer()
                                           .ok()
                                           .integer(Version)
                                           .text("product")
                                           .longInteger(0x1540)
                                           .text("session")
                                           .longInteger(77)
                                           .text("host")
                                           .text("/snaps")
                                           .integer(4711)
                                           .integer(3600)
                                           .data);
        requests += FakeAgent::readExactly(descriptor, 12); // status
        FakeAgent::sendAll(descriptor, Answer().ok().longInteger(0x604).data);
        requests += FakeAgent::readExactly(descriptor, 12); // end
    });
    int64_t status = 0;
    AgentInfo info = AgentClient(agent->endpoint, LongTimeoutMs).info(&status);
    EXPECT_EQ(info.pid, 4711);
    EXPECT_EQ(info.sessionName, "session");
    EXPECT_EQ(info.capabilities, 0x1540);
    EXPECT_EQ(info.telemetryLimit, 3600);
    EXPECT_EQ(status, 0x604);
    agent.reset(); // the end of the sequence has no answer: the agent's thread has read it now
    EXPECT_EQ(requests, Answer()
                            .header(PACKET_PACKET_SEQUENCE_START)
                            .header(PACKET_GET_AGENT_INFO_REQ)
                            .header(PACKET_GET_STATUS_REQ)
                            .header(PACKET_PACKET_SEQUENCE_END)
                            .data);
}

TEST(AgentClient, otherProtocolVersionIsIncompatible) {
    FakeAgent agent = FakeAgent::answering(Answer().ok().integer(20100101).data);
    EXPECT_EQ(wordOf([&] { AgentClient(agent.endpoint, LongTimeoutMs).info(); }),
              "agent.incompatible");
}

TEST(AgentClient, retransformationSendsTheFilterFileOrNone) {
    const struct {
        std::optional<std::string> file;
        std::string request;
    } cases[] = {
        {std::nullopt, Answer().header(105201).number(0, 1).integer(-1).data},
        {"/f", Answer().header(105201).number(1, 1).text("/f").data},
    };
    for (const auto& c : cases) {
        std::string request;
        FakeAgent agent([&](int descriptor, int) {
            request = FakeAgent::readExactly(descriptor, c.request.size());
            FakeAgent::sendAll(descriptor, Answer().ok().data);
        });
        AgentClient(agent.endpoint, LongTimeoutMs).retransformLoadedClasses(c.file);
        EXPECT_EQ(request, c.request);
    }
}

TEST(AgentClient, samplingSendsModeAndTexts) {
    std::string request;
    FakeAgent agent([&](int descriptor, int) {
        request = FakeAgent::readExactly(descriptor, 12 + 8 + 4 + 6 + 4);
        FakeAgent::sendAll(descriptor, Answer().ok().data);
    });
    AgentClient(agent.endpoint, LongTimeoutMs)
        .startCpuProfiling(CPU_SAMPLING, "java.*", std::nullopt);
    EXPECT_EQ(request, Answer()
                           .header(PACKET_START_CPU_PROFILING_REQ)
                           .longInteger(4)
                           .text("java.*")
                           .integer(-1)
                           .data);
}

TEST(AgentClient, captureReportsProgressUntilThePathComes) {
    Answer answer;
    for (int percent : {0, 10, 10, 99}) {
        answer.header(PACKET_PROGRESS).integer(percent);
    }
    answer.ok().text("/home/me/Snapshots/app.snapshot");
    FakeAgent agent = FakeAgent::answering(answer.data);
    std::vector<int> seen;
    std::string path =
        AgentClient(agent.endpoint, LongTimeoutMs).captureSnapshot(0, "", "", [&](int percent) {
            seen.push_back(percent);
        });
    EXPECT_EQ(path, "/home/me/Snapshots/app.snapshot");
    EXPECT_EQ(seen, (std::vector<int>{0, 10, 10, 99}));
}

TEST(AgentClient, captureRefusesWhatIsNoProgress) {
    for (const std::string& bytes :
         {Answer().header(PACKET_PROGRESS).integer(1000).data, Answer().header(4711).data}) {
        FakeAgent agent = FakeAgent::answering(bytes);
        EXPECT_EQ(
            wordOf([&] {
                AgentClient(agent.endpoint, LongTimeoutMs).captureSnapshot(0, "", "", nullptr);
            }),
            "agent.data");
    }
}

TEST(AgentClient, transfersGiveTheSameBytesBothWays) {
    for (size_t size :
         {size_t(0), size_t(1), size_t(131071), size_t(131072), size_t(131073), size_t(500000)}) {
        std::string file = noise(size);
        TempDir dir;
        EXPECT_EQ(fetch(Answer().ok().longInteger(int64_t(size)).bytes(file).data, false, dir),
                  file)
            << size;
        for (size_t block : {size_t(65536), size_t(1000)}) {
            EXPECT_EQ(fetch(compressedTransfer(file, block), true, dir), file) << size;
        }
    }
}

TEST(AgentClient, damagedTransfersLeaveNoFile) {
    std::string file = noise(200000);
    std::string plain = Answer().ok().longInteger(200000).bytes(file).data;
    std::string packed = compressedTransfer(file, 65536);
    std::string flipped = packed;
    flipped[12 + 8 + 4] = char(0xff); // the first deflate block gets a type that does not exist
    static const struct {
        const char* what;
        std::string bytes;
        bool compressed;
    } cases[] = {
        {"cut plain", plain.substr(0, 100000), false},
        {"cut compressed", packed.substr(0, packed.size() - 10), true},
        {"damaged block", flipped, true},
        {"negative length", Answer().ok().longInteger(-1).data, false},
        {"block too large", Answer().ok().longInteger(10).integer(70000).data, true},
        {"negative block", Answer().ok().longInteger(10).integer(-70000).data, true},
        {"chunk too short", Answer().ok().longInteger(10).text(deflateRaw("12345")).integer(0).data,
         true},
        {"chunk too long", Answer().ok().longInteger(2).text(deflateRaw("12345")).integer(0).data,
         true},
    };
    for (const auto& c : cases) {
        TempDir dir;
        EXPECT_NE(wordOf([&] { fetch(c.bytes, c.compressed, dir); }), "") << c.what;
        EXPECT_TRUE(std::filesystem::is_empty(dir.path)) << c.what;
    }
}

namespace {

// An agent that answers table requests from a database as the real one does.
class TableAgent {
public:
    explicit TableAgent(DB& db)
        : db(db), agent([this](int descriptor, int) { answer(descriptor); }) {}

    DB& db;
    std::vector<long> sentBytes;
    FakeAgent agent;

private:
    static int readInt(int descriptor) {
        std::string bytes = FakeAgent::readExactly(descriptor, 4);
        uint32_t value = 0;
        for (unsigned char c : bytes) {
            value = value << 8 | c;
        }
        return int(value);
    }

    void answer(int descriptor) {
        FakeAgent::readExactly(descriptor, 12);
        int stamps[MAX_TABLE_COUNT] = {};
        int mask = readInt(descriptor);
        for (int slot = 0; slot < 32; slot++) {
            if (mask >> slot & 1) {
                stamps[slot] = readInt(descriptor);
            }
        }
        ASSERT_EQ(readInt(descriptor), -1);
        FakeAgent::sendAll(descriptor, Answer().ok().data);
        Progress progress;
        SocketWriter writer(descriptor);
        writeTables(&db, writer, {mask, 32}, 0, 0, &progress, stamps, false, nullptr);
        writer.writeInt(TABLE_STREAM_END);
        db.currentStamp++; // before the end is sent: the test goes on with the database then
        writer.flush();
    }
};

constexpr int Mask = 1 << SLOT_String | 1 << SLOT_Thread | 1 << SLOT_Method |
                     1 << SLOT_ThreadFrame | 1 << SLOT_CPUProfiling | 1 << SLOT_Frame |
                     1 << SLOT_TableGeneration;

} // namespace

TEST(TableFetcher, laterFetchesBringChangesDeletionsAndClears) {
    DbBuilder b;
    int t = b.thread("main");
    int f1 = b.frame(0, b.method("A", "main"));
    int f2 = b.frame(f1, b.method("A", "work"));
    b.time(t, f1, 100);
    int row = b.time(t, f2, 60);
    TableAgent server(b.db);
    AgentClient client(server.agent.endpoint, LongTimeoutMs);
    TableFetcher fetcher(client);
    fetcher.fetch(Mask);
    EXPECT_EQ(makeProfile(fetcher.database()).total(), 100);

    b.time(t, f1, 150); // changed
    int f3 = b.frame(f2, b.method("A", "more"));
    b.time(t, f3, 20); // new
    fetcher.fetch(Mask);
    Profile profile = makeProfile(fetcher.database());
    EXPECT_EQ(profile.total(), 150);
    EXPECT_EQ(profile.charges.size(), 3u);

    b.db.cpuProfilingTable->setRecordModificationStamp(row, -b.db.currentStamp);
    fetcher.fetch(Mask);
    EXPECT_EQ(makeProfile(fetcher.database()).charges.size(), 2u);

    fetcher.fetch(Mask); // nothing new
    EXPECT_EQ(makeProfile(fetcher.database()).charges.size(), 2u);

    b.db.clearTableAndTellReaders(SLOT_CPUProfiling);
    fetcher.fetch(Mask);
    EXPECT_EQ(makeProfile(fetcher.database()).total(), 0);
}

TEST(TableFetcher, streamWithoutEndIsCut) {
    FakeAgent agent([](int descriptor, int) {
        FakeAgent::readSome(descriptor);
        // Rows of the table of strings, with texts of 64 KB.
        std::string row =
            std::string("\1\0\0\0", 4) + std::string("\0\0\1\0", 4) + std::string(65536, 'x');
        std::string answer = Answer().ok().data + std::string("\0\0\0\0\xff\xff\0\0", 8);
        FakeAgent::sendAll(descriptor, answer);
        for (int i = 1; i < 4000; i++) {
            std::string index = {char(i & 255), char(i >> 8), 0, 0};
            FakeAgent::sendAll(descriptor, index + row);
        }
    });
    AgentClient client(agent.endpoint, LongTimeoutMs);
    TableFetcher fetcher(client, 1 << 20);
    std::string message;
    EXPECT_EQ(wordOf([&] { fetcher.fetch(Mask); }, &message), "agent.data");
    EXPECT_NE(message.find("no end"), std::string::npos) << message;
}

TEST(TableFetcher, damagedStreamNamesTableAndRow) {
    // One row of cpuprofiling at index -1, little-endian.
    std::string stream("\6\0\0\0\1\0\0\0\xff\xff\xff\xff\1\0\0\0", 16);
    FakeAgent agent =
        FakeAgent::answering(Answer().ok().bytes(stream + std::string(16, '\0')).data);
    AgentClient client(agent.endpoint, LongTimeoutMs);
    TableFetcher fetcher(client);
    std::string message;
    EXPECT_EQ(wordOf([&] { fetcher.fetch(Mask); }, &message), "agent.data");
    EXPECT_NE(message.find("cpuprofiling"), std::string::npos) << message;
}

TEST(Protocol, numbersAreThoseOfTheJavaSide) {
    std::string java =
        TempDir::read(sourceFolder() + "/src/runtime/java/com/vandrik/runtime/Protocol.java");
    ASSERT_FALSE(java.empty());
    static const struct {
        const char* name;
        long value;
    } constants[] = {
#define CONSTANT(name) {#name, name}
        CONSTANT(PACKET_ERROR_RESP),
        CONSTANT(PACKET_OK_RESP),
        CONSTANT(PACKET_GET_STATUS_REQ),
        CONSTANT(PACKET_START_CPU_PROFILING_REQ),
        CONSTANT(PACKET_STOP_CPU_PROFILING_REQ),
        CONSTANT(PACKET_FORCE_GC_REQ),
        CONSTANT(PACKET_PROGRESS),
        CONSTANT(PACKET_TRANSFER_SNAPSHOT_REQ),
        CONSTANT(PACKET_TRANSFER_SNAPSHOT_COMPRESSED_REQ),
        CONSTANT(PACKET_GET_JVM_THREAD_DUMP_REQ),
        CONSTANT(PACKET_GET_AGENT_INFO_REQ),
        CONSTANT(PACKET_START_MONITOR_PROFILING),
        CONSTANT(PACKET_STOP_MONITOR_PROFILING),
        CONSTANT(PACKET_PACKET_SEQUENCE_START),
        CONSTANT(PACKET_PACKET_SEQUENCE_END),
        CONSTANT(PACKET_UPDATE_DATABASE_TABLES),
        CONSTANT(PACKET_GET_DATABASE_STATISTICS),
        CONSTANT(PACKET_CLEAR_CPU_DATA),
        CONSTANT(PACKET_CLEAR_MONITOR_DATA),
        CONSTANT(PACKET_CLEAR_ALLOCATION_DATA),
        CONSTANT(PACKET_CAPTURE_SNAPSHOT_REQ),
        CONSTANT(PACKET_CLEAR_EXCEPTIONS),
        CONSTANT(PACKET_ENABLE_EXCEPTION_TELEMETRY),
        CONSTANT(PACKET_DISABLE_EXCEPTION_TELEMETRY),
        CONSTANT(PACKET_UPDATE_CUSTOM_TABLE_INFO),
        CONSTANT(TRANSFER_UNCOMPRESSED_CHUNK_SIZE),
        CONSTANT(TRANSFER_COMPRESSED_CHUNK_SIZE),
#undef CONSTANT
        {"VERSION", Version},
        {"MAGIC", Magic},
    };
    for (const auto& constant : constants) {
        std::smatch match;
        std::regex pattern(std::string(" ") + constant.name + " = (-?[0-9]+)L?;");
        ASSERT_TRUE(std::regex_search(java, match, pattern)) << constant.name;
        EXPECT_EQ(std::stol(match[1]), constant.value) << constant.name;
    }
}
