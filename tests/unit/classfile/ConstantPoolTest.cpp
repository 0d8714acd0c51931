#include "support/ClassBuilder.h"
#include "support/ParsedClass.h"

#include <gtest/gtest.h>

namespace {

struct ParsedPool {
    ParsedPool(const std::string& entries, int count)
        : text(entries),
          input(reinterpret_cast<const unsigned char*>(text.data()), static_cast<int>(text.size())),
          pool(arena), valid(pool.read(input, count)) {}
    std::string text;
    ClassArena arena;
    DataInput input;
    ConstantPool pool;
    bool valid;
};

std::string written(const ConstantPool& pool) {
    ZVector<unsigned char> bytes(16);
    DataOutput output(bytes);
    pool.write(output);
    return std::string(reinterpret_cast<const char*>(bytes.data()),
                       static_cast<size_t>(bytes.getSize()));
}

std::string utf8(const std::string& text) {
    return ClassBuilder::u1(1) + ClassBuilder::u2(static_cast<int>(text.size())) + text;
}

using ConstantPoolTest = QuietTest;

} // namespace

TEST_F(ConstantPoolTest, everyKindOfEntryIsWrittenAsItWasRead) {
    using B = ClassBuilder;
    const std::string entries =
        utf8("name") + utf8("") + utf8("\xc3\xa9\xc0\x80") + B::u1(3) + B::u4(-5) + B::u1(4) +
        B::u4(0x7fc00001) + B::u1(5) + B::u4(1) + B::u4(2) + B::u1(6) + B::u4(0x7ff80000) +
        B::u4(7) + B::u1(7) + B::u2(1) + B::u1(8) + B::u2(1) + B::u1(9) + B::u2(9) + B::u2(14) +
        B::u1(10) + B::u2(9) + B::u2(14) + B::u1(11) + B::u2(9) + B::u2(14) + B::u1(12) + B::u2(1) +
        B::u2(1) + B::u1(15) + B::u1(9) + B::u2(1) + B::u1(16) + B::u2(1) + B::u1(17) + B::u2(0) +
        B::u2(14) + B::u1(18) + B::u2(0) + B::u2(14) + B::u1(19) + B::u2(1) + B::u1(20) + B::u2(1) +
        B::u1(5) + B::u4(3) + B::u4(4); // leaves a gap at the end
    ParsedPool parsed(entries, 24);
    ASSERT_TRUE(parsed.valid);
    EXPECT_EQ(parsed.input.getRemaining(), 0);
    EXPECT_EQ(written(parsed.pool), B::u2(24) + entries);
    // Once an entry has changed, all are encoded one by one.
    parsed.pool.entryChanged();
    EXPECT_EQ(written(parsed.pool), B::u2(24) + entries);
}

TEST_F(ConstantPoolTest, lookUpsFindEntriesThatWereRead) {
    using B = ClassBuilder;
    const std::string entries = utf8("a/B") + B::u1(7) + B::u2(1) + utf8("run") + utf8("()V") +
                                B::u1(12) + B::u2(3) + B::u2(4) + B::u1(10) + B::u2(2) + B::u2(5) +
                                B::u1(8) + B::u2(3) + B::u1(3) + B::u4(77);
    ParsedPool parsed(entries, 9);
    EXPECT_EQ(parsed.pool.findOrCreateUtf8("run"), 3);
    EXPECT_EQ(parsed.pool.findOrCreateConstantClass(1), 2);
    EXPECT_EQ(parsed.pool.findOrCreateNameAndType(3, 4), 5);
    EXPECT_EQ(parsed.pool.findOrCreateMethodRef(2, 3, 4), 6);
    EXPECT_EQ(parsed.pool.findOrCreateStringInfo("run"), 7);
    EXPECT_EQ(parsed.pool.findOrCreateInt(77), 8);
    EXPECT_EQ(parsed.pool.getSize(), 9);
    EXPECT_EQ(parsed.pool.findOrCreateMethodRef(2, 4, 4), 10) << "with its name and type before it";
    EXPECT_EQ(parsed.pool.findOrCreateMethodRef(2, 4, 4), 10);
    EXPECT_EQ(parsed.pool.getSize(), 11);
}

TEST_F(ConstantPoolTest, entriesAreFoundByEveryLengthAndValueWhereverTheyStand) {
    using B = ClassBuilder;
    std::string entries;
    int count = 1;
    // Longest first and last: what lies around a short text must not matter.
    for (int length = 20; length >= 0; length--, count++) {
        entries += utf8(std::string("abcdefghijklmnopqrst").substr(0, static_cast<size_t>(length)));
    }
    for (int value : {-1, 0, 0x12345678, -0x7fffffff}) {
        entries += B::u1(3) + B::u4(value);
        count++;
    }
    ParsedPool parsed(entries, count);
    for (int length = 0; length <= 20; length++) {
        const std::string text = std::string("abcdefghijklmnopqrst") //
                                     .substr(0, static_cast<size_t>(length));
        EXPECT_EQ(parsed.pool.findUtf8(text.c_str()), 21 - length) << text;
    }
    EXPECT_EQ(parsed.pool.findOrCreateInt(-1), 22);
    EXPECT_EQ(parsed.pool.findOrCreateInt(0), 23);
    EXPECT_EQ(parsed.pool.findOrCreateInt(0x12345678), 24);
    EXPECT_EQ(parsed.pool.findOrCreateInt(-0x7fffffff), 25);
    EXPECT_EQ(parsed.pool.getSize(), count);
    EXPECT_EQ(parsed.pool.findUtf8("absent"), 0);
    // The same once the index was made anew.
    parsed.pool.entryChanged();
    EXPECT_EQ(parsed.pool.findUtf8("abc"), 18);
    EXPECT_EQ(parsed.pool.findOrCreateInt(0x12345678), 24);
}

TEST_F(ConstantPoolTest, contentIsTheSameBeforeAndAfterAnEntryBecomesAnObject) {
    using B = ClassBuilder;
    const std::string entries = utf8("a/B") + B::u1(7) + B::u2(1) + B::u1(12) + B::u2(1) +
                                B::u2(2) + B::u1(3) + B::u4(-5) + B::u1(18) + B::u2(0) + B::u2(3) +
                                B::u1(5) + B::u4(1) + B::u4(2);
    ParsedPool parsed(entries, 8);
    for (int i = 1; i < 8; i++) {
        const ConstantPool::Content raw = parsed.pool.getContent(i);
        EXPECT_EQ(parsed.pool[i] == nullptr ? 0 : parsed.pool[i]->getTag(), raw.tag) << i;
        const ConstantPool::Content object = parsed.pool.getContent(i);
        EXPECT_EQ(object.tag, raw.tag) << i;
        if (raw.tag != CONSTANT_LONG) {
            EXPECT_EQ(object.first, raw.first) << i;
            EXPECT_EQ(object.second, raw.second) << i;
        }
        EXPECT_TRUE(object.text == raw.text) << i;
    }
}

TEST_F(ConstantPoolTest, wrongTagBehindAReferenceIsAnInternalError) {
    using B = ClassBuilder;
    ParsedPool parsed(utf8("a/B") + B::u1(10) + B::u2(1) + B::u2(1), 3);
    const auto* const ref = static_cast<const ConstantMethodRefInfo*>(parsed.pool[2]);
    EXPECT_THROW(ref->getMethodName(parsed.pool), VDKRuntimeException);
}

TEST_F(ConstantPoolTest, indexOfZeroIsAnInternalError) {
    using B = ClassBuilder;
    for (int tag : {7, 8}) {
        EXPECT_THROW(ParsedPool(B::u1(tag) + B::u2(0), 2), VDKRuntimeException) << tag;
    }
    for (int tag : {9, 10, 11, 12}) {
        EXPECT_THROW(ParsedPool(B::u1(tag) + B::u2(1) + B::u2(0), 2), VDKRuntimeException) << tag;
    }
    EXPECT_THROW(ParsedPool(B::u1(15) + B::u1(10) + B::u2(1), 2), VDKRuntimeException);
}
