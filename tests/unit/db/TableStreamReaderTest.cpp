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

TEST(TableStreamReader, copyOfADatabaseWritesTheSameStream) {
    DB db(-1, -1);
    fillSample(db);
    DB copy(-1, -1);
    copy.createUserTableInSlot(32, db.getUserTable(32)->getDescription());
    TableStreamReader reader(&copy);
    EXPECT_EQ("", follow(reader, socketStreamOf(db, ALL_TABLES_MASK, nullptr)));
    EXPECT_EQ(streamOf(db), streamOf(copy));
    EXPECT_EQ(3, reader.getRowCount(SLOT_Thread));
    EXPECT_EQ(5, reader.getRowCount(32));
    EXPECT_STREQ("caf\xC3\xA9", copy.stringPool->getText(3));
    EXPECT_EQ(3, copy.stringPool->getDBIndex("caf\xC3\xA9", false));
    copy.threadFrameIndex->fillIndexFromTable();
    copy.j2eeIndex->fillIndexFromTable();
    EXPECT_EQ(db.threadFrameIndex->getTFI(2, 400, false),
              copy.threadFrameIndex->getTFI(2, 400, false));
    EXPECT_EQ(0, copy.j2eeIndex->getIndex(3, 4, 7, 2));
    // A row made here does not fall on one that was read.
    EXPECT_EQ(db.stringTable->peekNextIndex(), copy.stringPool->getDBIndex("new here", true));
}

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
    for (int i = 0; i < 500; i++) {
        agent.cpuProfilingTable->setRecordModificationStamp(i, agent.currentStamp);
    }
    fetch();
    agent.clearTableAndTellReaders(SLOT_CPUProfiling);
    agent.cpuProfilingTable->getRecord(3, true)->timeNs = 33;
    agent.cpuProfilingTable->setRecordModificationStamp(3, agent.currentStamp);
    fetch();
    expectEqual();
    EXPECT_EQ(33, copy.cpuProfilingTable->getRecord(3, false)->timeNs);
    EXPECT_EQ(nullptr, copy.cpuProfilingTable->getRecord(4, false));
    agent.clearTableAndTellReaders(SLOT_CPUProfiling);
    fetch();
    EXPECT_EQ(-1, copy.cpuProfilingTable->getMinIndex());
    expectEqual();
}

// Memory that a clearing gave back is not held against the rows that come later.
TEST_F(LiveCopyTest, sparseTableMayBeClearedAndFilledForEver) {
    for (int round = 0; round < 100; round++) {
        for (int chunk = 0; chunk < 100; chunk++) {
            agent.cpuProfilingTable->setRecordModificationStamp(chunk * 256, agent.currentStamp);
        }
        fetch();
        agent.clearTableAndTellReaders(SLOT_CPUProfiling);
        fetch();
    }
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
    };
    for (const auto& row : rows) {
        EXPECT_EQ(row.message, applyFresh(row.stream));
    }
}

TEST(TableStreamReader, missingEndIsTold) {
    const std::string stream = intBytes(3) + intBytes(0);
    EXPECT_EQ("the input ends too early, in table stream, at offset 8", applyFresh(stream));
}

TEST(TableStreamReader, farRowsOfATinyStreamAreRefused) {
    for (int slot : {3, 6, 15, 16, 18}) {
        const int index = 0x7ffffffe;
        std::string stream = intBytes(slot) + intBytes(1) + intBytes(index) + intBytes(1);
        stream += std::string(18 * 4, 0);
        const std::string message = applyFresh(stream);
        EXPECT_NE(std::string::npos, message.find("the rows are too far apart")) << message;
    }
}

TEST(TableStreamReader, rowsSpreadOverTooManyChunksAreRefused) {
    // One row in every chunk: 6 kB of memory for 24 bytes.
    std::string stream = intBytes(6) + intBytes(20000);
    for (int i = 0; i < 20000; i++) {
        stream += intBytes(i * 256) + intBytes(1) + std::string(16, 0);
    }
    const std::string message = applyFresh(stream + intBytes(-1));
    EXPECT_NE(std::string::npos, message.find("the rows are too far apart")) << message;
    EXPECT_NE(std::string::npos, message.find("in cpuprofiling, row ")) << message;
}

TEST(TableStreamReader, frameWithoutTheFramesBeforeItIsRefused) {
    EXPECT_EQ("frames are missing before this one, in frame, row 100000, at offset 32",
              applyFresh(ints({8, 1, 100000, 1, 0, 0, -1, -1})));
}

TEST(TableStreamReader, referencesMustLeadToRows) {
    // A pair of thread 1 and frame 5000, in a stream with three frames.
    const std::string stream = ints({3, 1, 0, 1, 1, 5000, 8, 1, 1, 1, 0, 0, -1, -1});
    EXPECT_EQ("a reference to row 5000, which does not exist, in threadframe, row 0, frame, at "
              "offset 60",
              applyFresh(stream));
    // Without any frames there is nothing to check against.
    EXPECT_EQ("", applyFresh(ints({3, 1, 0, 1, 1, 5000})));
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

TEST(TableStreamReader, markedTablesEndAtAnyOtherByte) {
    DB db(-1, -1);
    fillSample(db);
    DB copy(-1, -1);
    copy.createUserTableInSlot(32, db.getUserTable(32)->getDescription());
    const std::string stream = streamOf(db) + ",rest";
    MemorySource source(stream.data(), static_cast<long>(stream.size()), 13);
    ByteReader input(source);
    TableStreamReader reader(&copy);
    reader.readMarkedTables(input);
    EXPECT_EQ(',', input.readByte());
    EXPECT_EQ('r', input.readByte());
    EXPECT_EQ(streamOf(db), streamOf(copy));
}

TEST(TableStreamReader, everyTruncationAndManyFlipsAreRefusedOrHarmless) {
    DB db(-1, -1);
    fillSample(db);
    const std::string stream = socketStreamOf(db, ALL_TABLES_MASK, nullptr);
    const ZString description = db.getUserTable(32)->getDescription();
    const auto attempt = [&](const std::string& bytes) {
        DB copy(-1, -1);
        copy.createUserTableInSlot(32, description);
        TableStreamReader reader(&copy);
        const std::string message = follow(reader, bytes);
        if (message.empty()) {
            // What was accepted can be walked and indexed.
            streamOf(copy);
            copy.threadFrameIndex->fillIndexFromTable();
            copy.j2eeIndex->fillIndexFromTable();
            copy.stringPool->collectGarbageStrings();
        }
        return message;
    };
    for (size_t length = 0; length < stream.size(); length += 31) {
        EXPECT_NE("", attempt(stream.substr(0, length)));
    }
    for (size_t at = 0; at < stream.size(); at += 17) {
        std::string flipped = stream;
        flipped[at] = static_cast<char>(flipped[at] ^ (1 << at % 8));
        attempt(flipped);
        flipped[at] = static_cast<char>(0x7f);
        attempt(flipped);
    }
}
