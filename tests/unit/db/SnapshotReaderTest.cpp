#include "db/SnapshotReader.h"

#include "DBTestSupport.h"
#include "TempDir.h"
#include "core/ground/Version.h"
#include "db/SnapshotWriter.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

namespace {
// A performance snapshot of the database as a file's bytes; `heap` and `closing` stand in for the
// sections of a heap.
std::string snapshotOf(DB& db, long flags = 0, const std::string& heap = std::string(),
                       const std::string& closing = std::string()) {
    TempDir dir;
    const int file = open(dir.file("x").c_str(), O_RDWR | O_CREAT, 0600);
    {
        SnapshotWriter writer(file);
        Progress progress;
        writeSnapshotHeader(db.startTime, db.sessionName, writer, flags, SNAPSHOT_FORMAT_VALUE);
        writeUserTableDescriptions(&db, writer);
        writer.writeBytes(heap.data(), static_cast<long>(heap.size()));
        writeAllTables(&db, writer, 10, 90, &progress, nullptr);
        writer.writeBytes(closing.data(), static_cast<long>(closing.size()));
    }
    close(file);
    return TempDir::read(dir.file("x"));
}

std::string readInto(DB& db, const std::string& bytes, HeapSectionReader* heap = nullptr) {
    MemorySource source(bytes.data(), static_cast<long>(bytes.size()), 100);
    SnapshotReader reader(&db, source, heap);
    try {
        reader.read();
    } catch (const BadInputException& bad) {
        return bad.message.c_str();
    }
    return std::string();
}

// A heap of the byte 25 and anything but 42; a closing section of the byte 44 and two more.
class ToyHeapReader : public HeapSectionReader {
public:
    void readHeapSections(ByteReader& input, const SnapshotHeader& header) override {
        EXPECT_TRUE(header.hasHeap());
        while (input.peekByte() != SNAPSHOT_TABLE_TAG) {
            heap.push_back(static_cast<char>(input.readByte()));
        }
    }
    void readClosingSections(ByteReader& input, const SnapshotHeader&) override {
        closing.push_back(static_cast<char>(input.readByte()));
        closing.push_back(static_cast<char>(input.readByte()));
    }
    std::string heap;
    std::string closing;
};
} // namespace

TEST(SnapshotReader, readsBackHeaderUserTablesAndRows) {
    DB db(-1, -1);
    fillSample(db);
    db.sessionName = "app";
    db.startTime = 1234567890;
    ourSnapshotCount = 3;
    ourContainsInvocations = true;
    const std::string bytes = snapshotOf(db, SNAPSHOT_CAUSE_ON_EVENT);
    ourContainsInvocations = false;
    DB copy(-1, -1);
    MemorySource source(bytes.data(), static_cast<long>(bytes.size()));
    SnapshotReader reader(&copy, source);
    const SnapshotHeader& header = reader.readHeader();
    EXPECT_STREQ("Created by " VDK_FULL_NAME, header.creator.c_str());
    EXPECT_STREQ("app", header.sessionName.c_str());
    EXPECT_EQ(1234567890, header.startTime);
    EXPECT_EQ(3, header.snapshotNumber);
    EXPECT_EQ(SNAPSHOT_CAUSE_ON_EVENT | SNAPSHOT_OIDS_ARE_INDICES | SNAPSHOT_WITH_COUNTS,
              header.flags);
    EXPECT_FALSE(header.hasHeap());
    EXPECT_TRUE(header.hasCounts());
    reader.read();
    EXPECT_EQ(1234567890, copy.startTime);
    EXPECT_STREQ("app", copy.sessionName.c_str());
    EXPECT_STREQ("Events", copy.getUserTable(32)->getName().c_str());
    EXPECT_EQ(streamOf(db), streamOf(copy));
}

TEST(SnapshotReader, heapAndClosingSectionsGoToTheirReader) {
    DB db(-1, -1);
    fillSample(db);
    const std::string bytes = snapshotOf(db, SNAPSHOT_WITH_HEAP, "\x19heap", ",!");
    DB copy(-1, -1);
    ToyHeapReader heap;
    EXPECT_EQ("", readInto(copy, bytes, &heap));
    EXPECT_EQ("\x19heap", heap.heap);
    EXPECT_EQ(",!", heap.closing);
    EXPECT_EQ(streamOf(db), streamOf(copy));
}

TEST(SnapshotReader, withoutAReaderTheHeapIsPassedOver) {
    DB db(-1, -1);
    fillSample(db);
    const std::string header = std::string("\x19") + std::string(12, '*');
    const auto record = [](int tag, size_t bytes) {
        return static_cast<char>(tag) + std::string(bytes, '*');
    };
    std::string fixed = header;
    for (int tag : {3, 4, 5, 43}) {
        fixed += record(tag, 24);
    }
    for (int tag : {8, 9, 10, 14, 15}) {
        fixed += record(tag, 12);
    }
    for (int tag : {11, 12, 13}) {
        fixed += record(tag, 8);
    }
    const std::string type = record(40, 32) + intBytes(1) + std::string(4, '*') + intBytes(1) +
                             std::string(8, '*') + intBytes(0) + intBytes(2) +
                             std::string(10, '*') + intBytes(1) + std::string(5, '*') +
                             std::string(8, '*');
    DB copy(-1, -1);
    EXPECT_EQ("", readInto(copy, snapshotOf(db, SNAPSHOT_WITH_HEAP, fixed + type, ",!")));
    EXPECT_EQ(streamOf(db), streamOf(copy));

    // The offsets of the primitive block begin at the next offset in the file that 8 divides.
    const std::string before = snapshotOf(db, SNAPSHOT_WITH_HEAP, header, "");
    const size_t start = before.find(header) + header.size();
    for (int length = 0; length < 8; length++) {
        const std::string data = intBytes(length) + intBytes(0) +
                                 std::string(static_cast<size_t>(length), '*') + intBytes(2);
        const size_t end = start + 1 + data.size();
        const std::string block =
            record(39, 0) + data + std::string((8 - end % 8) % 8, 0) + std::string(16, '*');
        DB other(-1, -1);
        EXPECT_EQ("", readInto(other, snapshotOf(db, SNAPSHOT_WITH_HEAP, header + block, "")));
        EXPECT_EQ(streamOf(db), streamOf(other));
    }
}

TEST(SnapshotReader, aHeapThatCannotBePassedOverIsRefused) {
    DB db(-1, -1);
    const std::string header = std::string("\x19") + std::string(12, 0);
    const struct {
        std::string records;
        const char* message;
    } cases[] = {{"c", "unknown record 99"},
                 {"'" + std::string(7, 0) + "\xff", "bytes"},
                 {"'" + std::string(7, 0) + "\x7f", "bytes"},
                 {"(" + std::string(32, 0) + std::string(4, '\xff'), "bytes"}};
    for (const auto& c : cases) {
        DB copy(-1, -1);
        const std::string error =
            readInto(copy, snapshotOf(db, SNAPSHOT_WITH_HEAP, header + c.records, ""));
        EXPECT_NE(std::string::npos, error.find(c.message)) << error;
    }
}

TEST(SnapshotReader, whatIsNoSnapshotIsSaidToBeNone) {
    const std::string magic(SNAPSHOT_MAGIC, SNAPSHOT_MAGIC_SIZE);
    const struct {
        std::string bytes;
        const char* message;
    } rows[] = {
        {"", "not a snapshot file, in the header, magic, at offset 0"},
        {"JAVA PROFILE 1.0.2", "not a snapshot file, in the header, magic, at offset 18"},
        {std::string(56, 'x'), "not a snapshot file, in the header, magic, at offset 56"},
        {magic + "A", "unknown format 65, in the header, format, at offset 57"},
        {magic + "B", "the input ends too early, in the header, creator, at offset 57"},
        {magic + "B" + intBytes(0x7fffffff), "2147483647 bytes of text, but only 0 bytes are left, "
                                             "in the header, creator, at offset 61"},
        {magic + "B" + intBytes(-1), "a text is missing, in the header, creator, at offset 61"},
        {magic + "B" + intBytes(0) + std::string(12, 0) + intBytes(5) + std::string(30, 0),
         "unknown format value 5, in the header, format value, at offset 77"},
    };
    for (const auto& row : rows) {
        DB db(-1, -1);
        EXPECT_EQ(row.message, readInto(db, row.bytes));
    }
}

TEST(SnapshotReader, badUserTablesAreRefused) {
    DB empty(-1, -1);
    const std::string header = snapshotOf(empty).substr(0, snapshotOf(empty).size() - 18 * 9);
    const auto table = [](int slot, const std::string& description) {
        return "5" + intBytes(slot) + intBytes(static_cast<int>(description.size())) + description;
    };
    const struct {
        std::string tables;
        const char* message;
    } rows[] = {
        {table(31, "T\n0\n"), "slot 31 is not from 32 to 127"},
        {table(128, "T\n0\n"), "slot 128 is not from 32 to 127"},
        {table(33, "T\n0\n") + table(33, "T\n0\n"), "slot 33 is not from 34 to 127"},
        {table(32, "T\n2000000000\n"), "the description of a user table is not valid"},
        {table(32, "T\n1\nthread\n1\n"), "the description of a user table is not valid"},
    };
    for (const auto& row : rows) {
        DB db(-1, -1);
        EXPECT_EQ(0u, readInto(db, header + row.tables).find(row.message)) << row.message;
    }
    DB db(-1, -1);
    EXPECT_EQ("", readInto(db, header + table(40, "T\n0\n") + table(127, "U\n0\n")));
    EXPECT_STREQ("U", db.getUserTable(127)->getName().c_str());
}

TEST(SnapshotReader, wideUserTableOfATinyFileTakesLittleMemory) {
    // A hundred thousand columns: a chunk of such rows would take a hundred megabytes.
    std::string description = "T\n100000\n";
    for (int i = 0; i < 100000; i++) {
        description += "\n0\n";
    }
    DB db(-1, -1);
    db.createUserTableByDescription(description.c_str());
    db.getUserTable(32)->getRecord(0, true)[0] = 1;
    DB copy(-1, -1);
    EXPECT_NE(std::string::npos, readInto(copy, snapshotOf(db)).find("the rows are too far apart"));
}

TEST(SnapshotReader, everyTruncationEndsAtATableOrIsRefused) {
    DB db(-1, -1);
    fillSample(db);
    const std::string bytes = snapshotOf(db);
    int accepted = 0;
    for (size_t length = 0; length < bytes.size(); length += 11) {
        DB copy(-1, -1);
        accepted += readInto(copy, bytes.substr(0, length)).empty();
    }
    DB copy(-1, -1);
    EXPECT_EQ(0u, readInto(copy, bytes + "x").find("unexpected byte 120"));
    // The end of the file ends the tables, so a cut between two of them cannot be told.
    EXPECT_LE(accepted, 19);
}
