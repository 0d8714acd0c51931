#include "classfile/OpCodes.h"

#include "classfile/ByteCodeGenerator.h"
#include "support/ClassBuilder.h"
#include "support/ParsedClass.h"

#include <gtest/gtest.h>

namespace {

using B = ClassBuilder;

int next(const std::string& code, int position) {
    return nextInstruction(reinterpret_cast<const unsigned char*>(code.data()),
                           static_cast<int>(code.size()), position);
}

bool containsSwitch(const std::string& code) {
    return SwitchDetector::containsSwitch(code.data(), static_cast<int>(code.size()));
}

bool containsNew(const std::string& code) {
    return NewOpCodeDetector::containsNewOpCode(code.data(), static_cast<int>(code.size()));
}

std::string bytesOf(const ByteCodeGenerator& generator) {
    return std::string(reinterpret_cast<const char*>(generator.getCode()),
                       static_cast<size_t>(generator.getSize()));
}

using OpCodes = QuietTest;

} // namespace

TEST_F(OpCodes, lengthsOfSpecialOpcodes) {
    const std::pair<int, int> rows[] = {{0, 1},    {16, 2},   {17, 3},   {132, 3}, {168, 3},
                                        {169, 2},  {170, -1}, {171, -1}, {185, 5}, {186, 5},
                                        {196, -1}, {197, 4},  {200, 5},  {201, 5}, {202, 1},
                                        {203, -1}, {253, -1}, {254, 1},  {255, 1}};
    for (const auto& row : rows) {
        EXPECT_EQ(ourOpCodeLength[row.first], row.second) << row.first;
    }
}

TEST_F(OpCodes, lengthsThatTheCodeItselfTells) {
    const std::string pad = B::code({0, 0, 0});
    const std::pair<std::string, int> rows[] = {
        {B::u1(170) + pad + B::u4(20) + B::u4(5) + B::u4(4), 16}, // high below low
        {B::u1(170) + pad + B::u4(20) + B::u4(1) + B::u4(3) + std::string(12, '\0'), 28},
        {B::u1(171) + pad + B::u4(12) + B::u4(0), 12},
        {B::u1(171) + pad + B::u4(12) + B::u4(1) + B::u4(7) + B::u4(9), 20},
        {B::code({196, 132, 0, 1, 0, 2}), 6},
        {B::code({196, 21, 1, 0}), 4},
    };
    for (const auto& row : rows) {
        EXPECT_EQ(next(row.first, 0), row.second) << &row - rows;
    }
}

TEST_F(OpCodes, instructionsCutOffAreInternalErrors) {
    for (const std::string& code :
         {B::code({17, 1}), B::code({196}), B::code({196, 132, 0}), B::code({170, 0, 0, 0}),
          B::u1(171) + B::code({0, 0, 0}) + B::u4(0) + B::u4(0x7fffffff),
          B::u1(170) + B::code({0, 0, 0}) + B::u4(0) + B::u4(static_cast<int>(0x80000000)) +
              B::u4(0x7fffffff)}) {
        EXPECT_THROW(next(code, 0), VDKRuntimeException);
    }
}

TEST_F(OpCodes, detectorsFindWhatTheyLookFor) {
    EXPECT_FALSE(containsSwitch(B::code({16, 170, 177})));
    EXPECT_TRUE(containsSwitch(B::code({16, 170, 171})));
    EXPECT_FALSE(containsNew(B::code({17, 187, 188, 177})));
    for (int opcode : {187, 188, 189, 197}) {
        EXPECT_TRUE(containsNew(B::u1(opcode))) << opcode;
    }
    EXPECT_FALSE(containsNew(""));
    EXPECT_FALSE(containsSwitch(""));
    EXPECT_THROW(containsSwitch(B::code({203, 170})), VDKRuntimeException) << "undefined opcode";
}

TEST_F(OpCodes, scanMarksBranchesSwitchesAndReturns) {
    // iload_0, ifeq, new, wide iinc, lookupswitch at 13 without pairs, goto_w, return
    const std::string code = B::code({26, 153, 0, 20, 187, 0, 1, 196, 132, 0, 0, 0, 1, 171}) +
                             B::code({0, 0}) + B::u4(11) + B::u4(0) + B::code({200}) + B::u4(5) +
                             B::u1(177);
    unsigned short marks[64];
    int count = 0;
    const auto* const bytes = reinterpret_cast<const unsigned char*>(code.data());
    const int length = static_cast<int>(code.size());
    const CodeTraits traits = scanCode(bytes, length, marks, &count);
    EXPECT_TRUE(traits.hasSwitch);
    EXPECT_TRUE(traits.createsObjects);
    EXPECT_EQ(std::vector<int>(marks, marks + count), (std::vector<int>{1, 13, 24, 29}));
    const CodeTraits plain = scanCode(bytes, 1, marks, &count);
    EXPECT_FALSE(plain.hasSwitch || plain.createsObjects);
    EXPECT_EQ(count, 0);
    for (int cut : {2, 3, 5, 8, 15, 25}) {
        EXPECT_THROW(scanCode(bytes, cut, marks, &count), VDKRuntimeException) << cut;
    }
}

TEST_F(OpCodes, generatedLoadsAreShortAndJumpsCloseInnerFirst) {
    ByteCodeGenerator loads;
    for (int slot : {3, 4, 255, 256}) {
        loads.aload(slot);
    }
    loads.iload(1);
    loads.iload(2); // has no form of its own
    EXPECT_EQ(bytesOf(loads), B::code({45, 25, 4, 25, 255, 196, 25, 1, 0, 27, 21, 2}));
    ByteCodeGenerator jumps;
    jumps.openJump(153);
    jumps.openJump(154);
    for (int i = 0; i < 300; i++) {
        jumps.push(0);
    }
    jumps.closeJump();
    unsigned char room[512];
    EXPECT_THROW(jumps.copyTo(room, 0), VDKRuntimeException) << "one is open";
    jumps.closeJump();
    EXPECT_EQ(bytesOf(jumps).substr(0, 6), B::code({153, 1, 50, 154, 1, 47}));
    EXPECT_EQ(jumps.getJumpTargets()[0], 306);
    EXPECT_EQ(jumps.getJumpTargets()[1], 306);
    EXPECT_THROW(jumps.closeJump(), VDKRuntimeException);
}
