#include "db/AbstractWriter.h"

#include "DBTestSupport.h"

#include <functional>
#include <gtest/gtest.h>

TEST(AbstractWriter, everyKindOfValueHasItsBytes) {
    const long longs[] = {1, -1};
    const short shorts[] = {-2, 3};
    const double doubles[] = {1.0};
    const unsigned char bytes[] = {1, 255};
    const struct {
        std::function<void(AbstractWriter&)> write;
        const char* expected;
    } cases[] = {
        {[](AbstractWriter& w) { w.writeByte(0x1234); }, "34"},
        {[](AbstractWriter& w) { w.writeShort(0x551234); }, "34 12"},
        {[](AbstractWriter& w) { w.writeLong(0x0102030405060708L); }, "08 07 06 05 04 03 02 01"},
        {[](AbstractWriter& w) { w.writeFloat(1.0f); }, "00 00 80 3F"},
        {[](AbstractWriter& w) { w.writeDouble(1.0); }, "00 00 00 00 00 00 F0 3F"},
        {[](AbstractWriter& w) { w.writeOID(0x1122334455667788L); }, "88 77 66 55"},
        {[](AbstractWriter& w) { w.writeString(nullptr); }, "FF FF FF FF"},
        {[](AbstractWriter& w) { w.writeString("hi"); }, "02 00 00 00 68 69"},
        {[](AbstractWriter& w) { w.writeWString(2, L"A\u20E4"); }, "02 00 00 00 41 00 E4 20"},
        {[&](AbstractWriter& w) { EXPECT_TRUE(w.writePrimitives(longs, 'J', 2)); },
         "01 00 00 00 00 00 00 00 FF FF FF FF FF FF FF FF"},
        {[&](AbstractWriter& w) { EXPECT_TRUE(w.writePrimitives(shorts, 'S', 2)); }, "FE FF 03 00"},
        {[&](AbstractWriter& w) { EXPECT_TRUE(w.writePrimitives(shorts, 'C', 1)); }, "FE FF"},
        {[&](AbstractWriter& w) { EXPECT_TRUE(w.writePrimitives(doubles, 'D', 1)); },
         "00 00 00 00 00 00 F0 3F"},
        {[&](AbstractWriter& w) { EXPECT_TRUE(w.writePrimitives(bytes, 'B', 2)); }, "01 FF"},
        {[&](AbstractWriter& w) { EXPECT_TRUE(w.writePrimitives(bytes, 'Z', 1)); }, "01"},
        {[&](AbstractWriter& w) { EXPECT_FALSE(w.writePrimitives(bytes, 'X', 2)); }, ""},
    };
    for (const auto& c : cases) {
        MemoryWriter writer;
        c.write(writer);
        EXPECT_EQ(c.expected, hex(writer.take()));
    }
    MemoryWriter wide(64, false);
    wide.writeOID(0x1122334455667788L);
    EXPECT_EQ("88 77 66 55 44 33 22 11", hex(wide.take()));
}

// However values lie across the end of the buffer, the bytes are those of single writes, and every
// piece but the last has the size of the buffer.
TEST(AbstractWriter, batchedWritesFlushWhereSingleBytesWould) {
    for (int capacity = 1; capacity < 40; capacity++) {
        MemoryWriter writer(capacity);
        MemoryWriter reference(capacity);
        for (int i = 0; i < 20; i++) {
            writer.writeByte(i);
            writer.writeInt(0x01020304 * i);
            writer.writeShort(i * 333);
            writer.writeString("text");
            writer.writeLong(0x0102030405060708L * i);
        }
        const std::string bytes = writer.take();
        for (char byte : bytes) {
            reference.writeByte(byte);
        }
        EXPECT_EQ(bytes, reference.take());
        EXPECT_EQ(reference.pieces, writer.pieces) << capacity;
    }
}

namespace {
class StuckWriter : public AbstractWriter {
public:
    StuckWriter() : AbstractWriter(4, true, -1) {}
    void flush() override {}
};
} // namespace

TEST(AbstractWriter, aFlushThatKeepsItsBytesIsAnInternalError) {
    StuckWriter writer;
    writer.writeInt(1);
    EXPECT_THROW(writer.writeByte(1), VDKRuntimeException);
}
