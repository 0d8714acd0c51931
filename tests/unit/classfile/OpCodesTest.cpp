#include "classfile/OpCodes.h"

#include "classfile/ByteCodeGenerator.h"
#include "support/ClassBuilder.h"

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

class OpCodes : public testing::Test {
protected:
    void SetUp() override {
        Logger::setSink([](const char*) {});
    }
    void TearDown() override { Logger::setSink(nullptr); }
};

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

TEST_F(OpCodes, switchPaddingFollowsThePosition) {
    EXPECT_EQ(switchOperands(3), 4);
    EXPECT_EQ(switchOperands(4), 8);
    EXPECT_EQ(switchOperands(0), 4);
}

TEST_F(OpCodes, tableswitchWithHighBelowLowIsItsHeader) {
    const std::string code = B::u1(170) + B::code({0, 0, 0}) + B::u4(20) + B::u4(5) + B::u4(4);
    EXPECT_EQ(next(code, 0), 16);
}

TEST_F(OpCodes, tableswitchSpansItsTable) {
    const std::string code =
        B::u1(170) + B::code({0, 0, 0}) + B::u4(20) + B::u4(1) + B::u4(3) + std::string(12, '\0');
    EXPECT_EQ(next(code, 0), 28);
}

TEST_F(OpCodes, lookupswitchWithoutPairsIsItsHeader) {
    EXPECT_EQ(next(B::u1(171) + B::code({0, 0, 0}) + B::u4(12) + B::u4(0), 0), 12);
    EXPECT_EQ(next(B::u1(171) + B::code({0, 0, 0}) + B::u4(12) + B::u4(1) + B::u4(7) + B::u4(9), 0),
              20);
}

TEST_F(OpCodes, wideStepsOverSixForIincAndFourOtherwise) {
    EXPECT_EQ(next(B::code({196, 132, 0, 1, 0, 2}), 0), 6);
    EXPECT_EQ(next(B::code({196, 21, 1, 0}), 0), 4);
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

TEST_F(OpCodes, undefinedOpcodeInFrontOfASwitchIsAnInternalError) {
    EXPECT_THROW(containsSwitch(B::code({203, 170})), VDKRuntimeException);
}

TEST_F(OpCodes, stackEffectsOfTheTableAreConsistent) {
    for (int i = 0; i < 202; i++) {
        EXPECT_NE(ourOpCodes[i].kind, OPK_UNDEFINED) << i;
        EXPECT_LE(ourOpCodes[i].pops, 4) << i;
        EXPECT_LE(ourOpCodes[i].pushes, 6) << i;
    }
    // One of each family, worked out by hand: pops, pushes.
    const int rows[][3] = {{20, 0, 2},  {47, 2, 2},  {50, 2, 1},  {79, 3, 0},  {80, 4, 0},
                           {90, 2, 3},  {94, 4, 6},  {97, 4, 2},  {121, 3, 2}, {133, 1, 2},
                           {136, 2, 1}, {144, 2, 1}, {148, 4, 1}, {151, 4, 1}, {150, 2, 1},
                           {165, 2, 0}, {173, 2, 0}, {191, 1, 0}, {194, 1, 0}, {193, 1, 1}};
    for (const auto& row : rows) {
        EXPECT_EQ(ourOpCodes[row[0]].pops, row[1]) << row[0];
        EXPECT_EQ(ourOpCodes[row[0]].pushes, row[2]) << row[0];
    }
}

TEST_F(OpCodes, loadsTakeTheShortestForm) {
    ByteCodeGenerator generator;
    generator.aload(3);
    generator.aload(4);
    generator.aload(255);
    generator.aload(256);
    EXPECT_EQ(bytesOf(generator), B::code({45, 25, 4, 25, 255, 196, 25, 1, 0}));
}

TEST_F(OpCodes, iloadHasNoFormOfItsOwnForSlotTwo) {
    ByteCodeGenerator generator;
    generator.iload(0);
    generator.iload(1);
    generator.iload(2);
    EXPECT_EQ(bytesOf(generator), B::code({26, 27, 21, 2}));
}

TEST_F(OpCodes, nestedJumpsCloseInnerFirst) {
    ByteCodeGenerator generator;
    generator.openJump(153);
    generator.openJump(154);
    generator.push(0);
    generator.closeJump();
    generator.closeJump();
    EXPECT_EQ(bytesOf(generator), B::code({153, 0, 7, 154, 0, 4, 0}));
    ASSERT_EQ(generator.getJumpTargets().getSize(), 2);
    EXPECT_EQ(generator.getJumpTargets()[0], 7);
    EXPECT_EQ(generator.getJumpTargets()[1], 7);
}

TEST_F(OpCodes, jumpOver300BytesStoresBothOperandBytes) {
    ByteCodeGenerator generator;
    generator.openJump(153);
    for (int i = 0; i < 297; i++) {
        generator.push(0);
    }
    generator.closeJump();
    EXPECT_EQ(generator.getCode()[1], 1);
    EXPECT_EQ(generator.getCode()[2], 44);
}

TEST_F(OpCodes, openJumpMayNotBeHandedOver) {
    ByteCodeGenerator generator;
    generator.openJump(153);
    unsigned char room[8];
    EXPECT_THROW(generator.copyTo(room, 0), VDKRuntimeException);
    ByteCodeGenerator empty;
    EXPECT_THROW(empty.closeJump(), VDKRuntimeException);
}
