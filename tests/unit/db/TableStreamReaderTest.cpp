#include "db/TableStreamReader.h"

#include "DBTestSupport.h"
#include "db/SnapshotCommon.h"

#include <gtest/gtest.h>

namespace {
// Applies a stream as it comes from an agent. The message of the failure, empty for none.
std::string follow(TableStreamReader& reader, const std::string& stream) {
    MemorySource source(stream.data(), static_cast<long>(stream.size()));
    ByteReader input(source);
    try {
        reader.readSocketStream(input);
    } catch (const BadInputException& bad) {
        return bad.message.c_str();
    }
    return std::string();
}

std::string applyFresh(const std::string& stream) {
    DB db(-1, -1);
    TableStreamReader reader(&db);
    return follow(reader, stream);
}

// A stream of one table from ints; the end mark follows.
std::string ints(std::initializer_list<int> values) {
    std::string bytes;
    for (int value : values) {
        bytes += intBytes(value);
    }
    return bytes + intBytes(TABLE_STREAM_END);
}

// An agent's database and a client's copy that follows it.
struct LiveCopyTest : testing::Test {
    LiveCopyTest() : agent(-1, -1), copy(-1, -1), reader(&copy) {}
    // One fetch, after which the agent's stamp rises. Number of bytes that travelled.
    size_t fetch() {
        const std::string stream = socketStreamOf(agent, ALL_TABLES_MASK, reader.getStamps());
        agent.currentStamp++;
        EXPECT_EQ("", follow(reader, stream));
        return stream.size();
    }
    // The copy holds what a client that comes only now would get.
    void expectEqual() { EXPECT_EQ(streamOf(agent), streamOf(copy)); }

    DB agent;
    DB copy;
    TableStreamReader reader;
};
} // namespace

TEST_F(LiveCopyTest, incrementsBringOnlyWhatChanged) {
    fillSample(agent);
    copy.createUserTableInSlot(32, agent.getUserTable(32)->getDescription());
    const size_t first = fetch();
    expectEqual();
    // 19 tables with nothing new, and the end mark.
    EXPECT_EQ(19u * 8 + 4, fetch());
    agent.setProperty("vdk.answer", 43);
    EXPECT_EQ(19u * 8 + 4 + 16, fetch());
    expectEqual();
    EXPECT_GT(first, 20000u);
}

TEST_F(LiveCopyTest, deletionsAndReuseOfRowsArrive) {
    const int old = agent.stringPool->getDBIndex("old", true);
    fetch();
    agent.stringPool->collectGarbageStrings();
    fetch();
    EXPECT_EQ(nullptr, copy.stringPool->getText(old));
    EXPECT_EQ(0, copy.stringPool->getDBIndex("old", false));
    EXPECT_EQ(old, agent.stringPool->getDBIndex("new", true));
    fetch();
    EXPECT_STREQ("new", copy.stringPool->getText(old));
    expectEqual();
}

TEST_F(LiveCopyTest, clearedTableLosesItsOldRowsOnly) {
    // Again and again: memory that a clearing gave back is not held against later rows.
    for (int round = 0; round < 100; round++) {
        for (int i = 0; i < 100; i++) {
            agent.cpuProfilingTable->setRecordModificationStamp(i * 256, agent.currentStamp);
        }
        fetch();
        agent.clearTableAndTellReaders(SLOT_CPUProfiling);
        agent.cpuProfilingTable->getRecord(3, true)->timeNs = round;
        agent.cpuProfilingTable->setRecordModificationStamp(3, agent.currentStamp);
        fetch();
        EXPECT_EQ(round, copy.cpuProfilingTable->getRecord(3, false)->timeNs);
        EXPECT_EQ(nullptr, copy.cpuProfilingTable->getRecord(256, false));
    }
    expectEqual();
    agent.clearTableAndTellReaders(SLOT_CPUProfiling);
    fetch();
    EXPECT_EQ(-1, copy.cpuProfilingTable->getMinIndex());
    expectEqual();
}

TEST_F(LiveCopyTest, droppedRowsAreForgottenAltogether) {
    agent.j2eeIndex->getIndex(1, 2, 0, 4);
    agent.j2eeIndex->getIndex(1, 2, 0, 5);
    agent.stringPool->getDBIndex("name", true);
    fetch();
    agent.clearTableAndTellReaders(SLOT_J2EE);
    agent.j2eeIndex->getIndex(1, 3, 0, 6);
    fetch();
    copy.j2eeIndex->fillIndexFromTable();
    EXPECT_EQ(0, copy.j2eeIndex->getIndex(1, 3, 0, 6));
    // No trace of row 1, which the index would have found.
    EXPECT_EQ(0, copy.j2eeTable->getRecord(1, true)->trn);
}

TEST_F(LiveCopyTest, lateClientGetsEverythingDeletionsIncluded) {
    fillSample(agent);
    for (int i = 0; i < 5; i++) {
        agent.currentStamp++;
        agent.threadFrameIndex->getTFI(2, 1, true);
    }
    ThreadKeys oldest;
    oldest.tfiThreadIndex = 3;
    oldest.trn = 3;
    agent.oldestFinishedThreads = &oldest;
    agent.threadFrameIndex->changeThread(2);
    copy.createUserTableInSlot(32, agent.getUserTable(32)->getDescription());
    fetch();
    expectEqual();
    EXPECT_EQ(5, reader.getRowCount(32));
    EXPECT_EQ(3, copy.stringPool->getDBIndex("caf\xC3\xA9", false));
    // A row made here does not fall on one that was read.
    EXPECT_EQ(agent.stringTable->peekNextIndex(), copy.stringPool->getDBIndex("new here", true));
}

TEST(TableStreamReader, hostileStreamsAreRefusedWithTheirPlace) {
    const struct {
        std::string stream;
        const char* message;
    } rows[] = {
        {ints({12, 0}),
         "the table allocator is never part of a stream, in table stream, at offset 4"},
        {ints({19, 0}), "there is no table 19, in table stream, at offset 4"},
        {ints({32, 0}), "there is no table 32, in table stream, at offset 4"},
        {ints({128, 0}), "there is no table 128, in table stream, at offset 4"},
        {ints({-2, 0}), "table -2 after table -1, in table stream, at offset 4"},
        {ints({3, 0, 1, 0}), "table 1 after table 3, in table stream, at offset 12"},
        {ints({1, 0, 1, 0}), "table 1 after table 1, in table stream, at offset 12"},
        {ints({3, -1}), "-1 rows make no sense, in threadframe, at offset 8"},
        {ints({3, 1}), "1 rows, but only 4 bytes are left, in threadframe, at offset 8"},
        {ints({3, 0x7fffffff, 1, 1, 0, 0}),
         "2147483647 rows, but only 20 bytes are left, in threadframe, at offset 8"},
        {ints({3, 1, -1, 1, 0, 0}), "row number -1 after -1, in threadframe, at offset 12"},
        {ints({3, 2, 5, 1, 0, 0, 5, 1, 0, 0}),
         "row number 5 after 5, in threadframe, at offset 28"},
        {ints({3, 1, 4, 0, 0, 0}), "stamp 0, in threadframe, row 4, stamp, at offset 16"},
        {ints({3, 1, 4, static_cast<int>(0x80000000), 0, 0}),
         "stamp -2147483648, in threadframe, row 4, stamp, at offset 16"},
        {ints({3, 1, 4, 1, -1, 0}),
         "row number -1, in threadframe, row 4, tfiThreadIndex, at offset 20"},
        {ints({0, 1, 0, 1, -1}), "row 0 stands for no text, in string, row 0, at offset 20"},
        {ints({0, 1, 1, 1, -7}), "negative text length -7, in string, row 1, text, at offset 20"},
        {ints({9, 1, 128, 1}),
         "there is no such table to be cleared, in tablegeneration, row 128, at offset 16"},
        {ints({9, 1, 8, 1}),
         "the table frame is never cleared, in tablegeneration, row 8, at offset 16"},
        {intBytes(3) + intBytes(0), "the input ends too early, in table stream, at offset 8"},
        {ints({8, 1, 100000, 1, 0, 0, -1, -1}),
         "frames are missing before this one, in frame, row 100000, at offset 32"},
        // A pair of thread 1 and frame 5000, in a stream with three frames.
        {ints({3, 1, 0, 1, 1, 5000, 8, 1, 1, 1, 0, 0, -1, -1}),
         "a reference to row 5000, which does not exist, in threadframe, row 0, frame, at offset "
         "60"},
        // Without any frames there is nothing to check against.
        {ints({3, 1, 0, 1, 1, 5000}), ""},
    };
    for (const auto& row : rows) {
        EXPECT_EQ(row.message, applyFresh(row.stream));
    }
}

TEST(TableStreamReader, rowsTooFarApartAreRefused) {
    std::vector<std::string> streams;
    for (int slot : {3, 6, 15, 16, 18}) {
        streams.push_back(intBytes(slot) + intBytes(1) + intBytes(0x7ffffffe) + intBytes(1) +
                          std::string(18 * 4, 0));
    }
    // One row in every chunk: 6 kB of memory for 24 bytes.
    streams.push_back(intBytes(6) + intBytes(20000));
    for (int i = 0; i < 20000; i++) {
        streams.back() += intBytes(i * 256) + intBytes(1) + std::string(16, 0);
    }
    for (const std::string& stream : streams) {
        const std::string message = applyFresh(stream + intBytes(-1));
        EXPECT_EQ(0u, message.find("the rows are too far apart: ")) << message;
    }
}

TEST(TableStreamReader, framesMustFormATree) {
    const char* const noTree = "the frames are no tree";
    const struct {
        std::string stream;
        const char* message;
    } rows[] = {
        // Own parent, child of itself, sibling before it.
        {ints({8, 1, 1, 1, 1, 0, -1, -1}), noTree},
        {ints({8, 1, 1, 1, 0, 0, 1, -1}), noTree},
        {ints({8, 2, 1, 1, 0, 0, -1, -1, 2, 1, 0, 0, -1, 1}), noTree},
        // A child that is no row, or another frame's.
        {ints({8, 1, 1, 1, 0, 0, 2, -1}), noTree},
        {ints({8, 2, 1, 1, 0, 0, 2, -1, 2, 1, 0, 0, -1, -1}), noTree},
        // A sibling that has another parent.
        {ints({8, 3, 1, 1, 0, 0, -1, 3, 2, 1, 0, 0, -1, -1, 3, 1, 2, 0, -1, -1}), noTree},
        {ints({8, 1, 1, 1, -2, 0, -1, -1}), "row number -2"},
        {ints({8, 1, 1, 1, 0, -1, -1, -1}), "row number -1"},
    };
    for (const auto& row : rows) {
        const std::string message = applyFresh(row.stream);
        EXPECT_EQ(0u, message.find(row.message)) << message;
        EXPECT_NE(std::string::npos, message.find("in frame, row ")) << message;
    }
}

TEST(TableStreamReader, knownFrameKeepsItsParent) {
    DB db(-1, -1);
    TableStreamReader reader(&db);
    EXPECT_EQ("", follow(reader, ints({8, 2, 1, 1, 0, 0, -1, 2, 2, 1, 0, 0, -1, -1})));
    EXPECT_EQ("a frame changes its parent or method, in frame, row 2, at offset 32",
              follow(reader, ints({8, 1, 2, 2, 1, 0, -1, -1})));
}

TEST(TableStreamReader, everyTruncationIsRefused) {
    DB db(-1, -1);
    fillSample(db);
    const std::string stream = socketStreamOf(db, ALL_TABLES_MASK, nullptr);
    for (size_t length = 0; length < stream.size(); length += 31) {
        DB copy(-1, -1);
        copy.createUserTableInSlot(32, db.getUserTable(32)->getDescription());
        TableStreamReader reader(&copy);
        EXPECT_NE("", follow(reader, stream.substr(0, length)));
    }
}
