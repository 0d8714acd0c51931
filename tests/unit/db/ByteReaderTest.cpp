#include "db/ByteReader.h"

#include "DBTestSupport.h"

#include <cstdlib>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <thread>
#include <unistd.h>

namespace {
// The message of the exception that the body throws, empty if it throws none.
template <typename Body>
std::string messageOf(Body&& body) {
    try {
        body();
    } catch (const BadInputException& bad) {
        return bad.message.c_str();
    }
    return std::string();
}

// Memory whose size the reader is not told.
class EndlessSource : public MemorySource {
public:
    EndlessSource(const std::string& bytes, long piece)
        : MemorySource(bytes.data(), static_cast<long>(bytes.size()), piece) {}
    long getTotalSize() const override { return -1; }
};

std::string textOf(ByteReader& reader) {
    char* text = reader.readString();
    const std::string copy = text == nullptr ? "<null>" : text;
    free(text);
    return copy;
}
} // namespace

TEST(ByteReader, readsWhatTheWriterWroteWhateverThePieces) {
    MemoryWriter writer;
    writer.writeByte(200);
    writer.writeShort(-2);
    writer.writeInt(-123456);
    writer.writeLong(0x1122334455667788L);
    writer.writeString("h\xC3\xA9llo");
    writer.writeString(nullptr);
    writer.writeString("");
    writer.writeInt(9);
    const std::string bytes = writer.take();
    for (long piece = 1; piece < 20; piece++) {
        MemorySource source(bytes.data(), static_cast<long>(bytes.size()), piece);
        ByteReader reader(source);
        EXPECT_EQ(200, reader.readByte());
        EXPECT_EQ(-2, reader.readShort());
        EXPECT_EQ(-123456, reader.readInt());
        EXPECT_EQ(0x1122334455667788L, reader.readLong());
        EXPECT_EQ("h\xC3\xA9llo", textOf(reader));
        EXPECT_EQ("<null>", textOf(reader));
        EXPECT_EQ("", textOf(reader));
        EXPECT_EQ(4, reader.getRemaining());
        EXPECT_EQ(9, reader.peekByte());
        EXPECT_EQ(9, reader.readInt());
        EXPECT_TRUE(reader.isAtEnd());
        EXPECT_EQ(static_cast<long>(bytes.size()), reader.getOffset());
    }
}

TEST(ByteReader, badInputIsToldWithItsPlace) {
    const struct {
        const char* bytes;
        void (*read)(ByteReader& reader);
        const char* message;
    } cases[] = {
        {"01 02 03 04 05",
         [](ByteReader& reader) {
             reader.setTable("thread");
             reader.setRow(7);
             reader.setField("trn");
             reader.readInt();
             reader.readInt();
         },
         "the input ends too early, in thread, row 7, trn, at offset 5"},
        // Lengths are checked before memory is taken.
        {"FE FF FF FF", [](ByteReader& r) { textOf(r); }, "negative text length -2, at offset 4"},
        {"00 00 00 80", [](ByteReader& r) { textOf(r); },
         "negative text length -2147483648, at offset 4"},
        {"FF FF FF 7F 61", [](ByteReader& r) { textOf(r); },
         "2147483647 bytes of text, but only 1 bytes are left, at offset 4"},
        {"02 00 00 00 61 00", [](ByteReader& r) { textOf(r); },
         "a text holds a zero byte, at offset 6"},
        {"FF FF FF FF", [](ByteReader& r) { r.readText(); }, "a text is missing, at offset 4"},
        {"05 00 00 00", [](ByteReader& r) { r.readIntInRange("slot", 32, 127); },
         "slot 5 is not from 32 to 127, at offset 4"},
        {"00 00", [](ByteReader& r) { r.expect("rows", -1, 4); },
         "-1 rows make no sense, at offset 0"},
        {"00 00", [](ByteReader& r) { r.expect("rows", 1, 4); },
         "1 rows, but only 2 bytes are left, at offset 0"},
        {"00 00", [](ByteReader& r) { r.expect("rows", 2, 1); }, ""},
        {"00 00", [](ByteReader& r) { r.skip(3); },
         "3 bytes, but only 2 bytes are left, at offset 0"},
    };
    for (const auto& c : cases) {
        const std::string bytes = bytesOf(c.bytes);
        MemorySource source(bytes.data(), static_cast<long>(bytes.size()));
        ByteReader reader(source);
        EXPECT_EQ(c.message, messageOf([&] { c.read(reader); }));
    }
}

TEST(ByteReader, hugeTextOfUnknownInputTakesMemoryAsItArrives) {
    // Two gigabytes are claimed, a few hundred kilobytes come.
    std::string bytes = bytesOf("FF FF FF 7F") + std::string(300000, 'x');
    EndlessSource source(bytes, 1000);
    ByteReader reader(source);
    EXPECT_EQ("the input ends too early, at offset 300004", messageOf([&] { textOf(reader); }));
    bytes = intBytes(200000) + std::string(200000, 'y');
    EndlessSource whole(bytes, 777);
    ByteReader wholeReader(whole);
    EXPECT_EQ(std::string(200000, 'y'), textOf(wholeReader));
}

TEST(DescriptorSource, readsAPipeAndTellsWhatCannotBeRead) {
    int ends[2];
    ASSERT_EQ(0, pipe(ends));
    std::thread feeder([&] {
        for (int i = 0; i < 100000; i++) {
            const std::string bytes = intBytes(i);
            ASSERT_EQ(4, write(ends[1], bytes.data(), 4));
        }
        close(ends[1]);
    });
    DescriptorSource source(ends[0]);
    EXPECT_EQ(-1, source.getTotalSize());
    ByteReader reader(source);
    for (int i = 0; i < 100000; i++) {
        ASSERT_EQ(i, reader.readInt());
    }
    EXPECT_TRUE(reader.isAtEnd());
    feeder.join();
    close(ends[0]);
    const int directory = open("/tmp", O_RDONLY);
    DescriptorSource unreadable(directory);
    EXPECT_EQ("the input cannot be read: Is a directory, at offset 0",
              messageOf([&] { ByteReader(unreadable).peekByte(); }));
    close(directory);
}
