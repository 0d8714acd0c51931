#include "client/agent/AgentClient.h"

#include "Expect.h"
#include "FakeAgent.h"
#include "SourceFolder.h"
#include "TempDir.h"
#include "client/agent/Protocol.h"
#include "db/SnapshotCommon.h"
#include "platform/Platform.h"

#include <gtest/gtest.h>
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

TEST(AgentClient, everyBadAnswerIsAnErrorOfItsOwn) {
    std::string half = Answer().ok().text("tables").data;
    const std::string incompatible = INCOMPATIBLE_AGENT_MESSAGE;
    const struct {
        const char* what;
        std::string bytes;
        const char* word;
        std::string message; // part of it
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
         "agent.incompatible", incompatible + "\nUnknown packet type: 5"},
        {"wrong type", Answer().header(12345).data, "agent.incompatible",
         "Wrong packet type: 12345, expected 1"},
    };
    for (const auto& c : cases) {
        std::string message;
        EXPECT_EQ(wordOf([&] { statisticsFrom(c.bytes); }, &message), c.word) << c.what;
        EXPECT_NE(message.find(c.message), std::string::npos) << c.what << ": " << message;
    }
    FakeAgent older = FakeAgent::answering(Answer().ok().integer(20100101).data);
    EXPECT_EQ(wordOf([&] { AgentClient(older.endpoint, LongTimeoutMs).info(); }),
              "agent.incompatible");
    for (const std::string& bytes :
         {Answer().header(PACKET_PROGRESS).integer(1000).data, Answer().header(4711).data}) {
        FakeAgent agent = FakeAgent::answering(bytes);
        AgentClient client(agent.endpoint, LongTimeoutMs);
        EXPECT_EQ(wordOf([&] { client.captureSnapshot(0, "", "", nullptr); }), "agent.data");
    }
    FakeAgent huge = FakeAgent::answering(Answer().ok().longInteger(int64_t(1) << 60).data);
    TempDir dir;
    OutputFile out(dir.file("out"));
    AgentClient client(huge.endpoint, LongTimeoutMs);
    EXPECT_EQ(wordOf([&] { client.downloadSnapshot("/x", false, out, nullptr); }), "output.space");
}

TEST(AgentClient, portWhereNobodyListensIsRefusedAndAProcessThatHasEndedIsNamed) {
    UnheardPort port;
    const auto word = [&] {
        return wordOf([&] { AgentClient(port.endpoint, LongTimeoutMs).statistics(); });
    };
    EXPECT_EQ(word(), "agent.connect");
    port.endpoint.pid = fork();
    if (port.endpoint.pid == 0) {
        _exit(0);
    }
    while (Platform::isRunning(port.endpoint.pid)) {
        usleep(1000);
    }
    EXPECT_EQ(word(), "target.ended") << "that nobody has waited for yet";
    waitpid(port.endpoint.pid, nullptr, 0);
    EXPECT_EQ(word(), "target.ended");
    // Killed in the middle of its tables.
    int killed = fork();
    if (killed == 0) {
        pause();
    }
    FakeAgent agent([&](int descriptor, int) {
        FakeAgent::readSome(descriptor);
        FakeAgent::sendAll(descriptor, Answer().ok().data);
        kill(killed, SIGKILL);
    });
    agent.endpoint.pid = killed;
    AgentClient client(agent.endpoint, LongTimeoutMs);
    EXPECT_EQ(wordOf([&] { TableFetcher(client).fetch(1); }), "target.ended");
    waitpid(killed, nullptr, 0);
    agent.endpoint.pid = 0;
    AgentClient remote(agent.endpoint, LongTimeoutMs);
    EXPECT_EQ(wordOf([&] { TableFetcher(remote).fetch(1); }), "agent.closed");
}

TEST(AgentClient, silenceAndAnAnswerThatTricklesForEverTimeOut) {
    FakeAgent agent([](int descriptor, int connection) {
        if (connection == 0) {
            FakeAgent::readExactly(descriptor, 1 << 20);
            return;
        }
        FakeAgent::sendAll(descriptor, Answer().ok().integer(1 << 20).data);
        for (int i = 0; i < 2000 && send(descriptor, "x", 1, MSG_NOSIGNAL) == 1; i++) {
            usleep(20000);
        }
    });
    for (int connection = 0; connection < 2; connection++) {
        EXPECT_EQ(wordOf([&] { AgentClient(agent.endpoint, ShortTimeoutMs).statistics(); }),
                  "agent.timeout");
    }
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
    const auto block = [](int64_t size) { return Answer().ok().longInteger(size); };
    const struct {
        const char* what;
        std::string bytes;
        bool compressed;
    } cases[] = {
        {"cut plain", plain.substr(0, 100000), false},
        {"cut compressed", packed.substr(0, packed.size() - 10), true},
        {"damaged block", flipped, true},
        {"negative length", block(-1).data, false},
        {"block too large", block(10).integer(70000).data, true},
        {"negative block", block(10).integer(-70000).data, true},
        {"chunk too short", block(10).text(deflateRaw("12345")).integer(0).data, true},
        {"chunk too long", block(2).text(deflateRaw("12345")).integer(0).data, true},
    };
    for (const auto& c : cases) {
        TempDir dir;
        EXPECT_NE(wordOf([&] { fetch(c.bytes, c.compressed, dir); }), "") << c.what;
        EXPECT_TRUE(std::filesystem::is_empty(dir.path)) << c.what;
    }
}

TEST(TableFetcher, damagedStreamNamesTableAndRowAndOneWithoutEndIsCut) {
    FakeAgent agent([](int descriptor, int connection) {
        FakeAgent::readSome(descriptor);
        if (connection == 0) {
            // One row of cpuprofiling at index -1, little-endian.
            std::string stream("\6\0\0\0\1\0\0\0\xff\xff\xff\xff\1\0\0\0", 16);
            FakeAgent::sendAll(descriptor, Answer().ok().data + stream + std::string(16, '\0'));
            return;
        }
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
    for (const char* part : {"cpuprofiling", "no end"}) {
        AgentClient client(agent.endpoint, LongTimeoutMs);
        TableFetcher fetcher(client, 1 << 20);
        std::string message;
        EXPECT_EQ(
            wordOf([&] { fetcher.fetch(1 << SLOT_String | 1 << SLOT_CPUProfiling); }, &message),
            "agent.data");
        EXPECT_NE(message.find(part), std::string::npos) << message;
    }
}

// The tests of the Java side compare all other numbers.
TEST(Protocol, sizesOfTransfersAreThoseOfTheJavaSide) {
    std::string java =
        TempDir::read(sourceFolder() + "/src/runtime/java/com/vandrik/runtime/Protocol.java");
    for (const std::string& row :
         {"TRANSFER_UNCOMPRESSED_CHUNK_SIZE = " + std::to_string(TRANSFER_UNCOMPRESSED_CHUNK_SIZE),
          "TRANSFER_COMPRESSED_CHUNK_SIZE = " + std::to_string(TRANSFER_COMPRESSED_CHUNK_SIZE)}) {
        EXPECT_NE(java.find(" " + row + ";"), std::string::npos) << row;
    }
}
