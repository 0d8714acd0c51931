#include "support/ClassBuilder.h"
#include "support/ParsedClass.h"
#include "support/ReferenceClass.h"

#include <gtest/gtest.h>

namespace {

using B = ClassBuilder;

ReferenceClass rewritten(ParsedClass& parsed) {
    const std::string bytes = parsed.write();
    return ReferenceClass(bytes.data(), bytes.size());
}

// iload_0, ifeq +4, nop, return; a frame at the return.
std::string branching(int major) {
    B builder(major);
    B::Attributes attributes = {
        {"LineNumberTable", B::u2(2) + B::u2(0) + B::u2(10) + B::u2(5) + B::u2(11)}};
    if (major > 49) {
        attributes.push_back({"StackMapTable", B::u2(1) + B::u1(5)});
    }
    builder.addMethod(9, "m", "(I)V", 1, 1, B::code({26, 153, 0, 4, 0, 177}), {{0, 4, 5, 0}},
                      attributes);
    return builder.build();
}

using CodeAttributeTest = QuietTest;

const VerificationType TOP(VERIFICATION_TOP, -1);
const VerificationType INT(VERIFICATION_INT, -1);

} // namespace

TEST_F(CodeAttributeTest, addStackMapFramesKeepsAnExistingFrame) {
    ParsedClass parsed(branching(52));
    ZVector<int> offsets;
    offsets.push(1);
    offsets.push(5);
    parsed.code("m")->addStackMapFrames(offsets, 0, INT, -1);
    const ArenaVector<StackMapFrame*>& frames = parsed.code("m")->getFrames();
    ASSERT_EQ(frames.getSize(), 3);
    EXPECT_EQ(frames[1]->getOffset(), 1);
    EXPECT_EQ(frames[1]->getStack().getSize(), 1);
    EXPECT_EQ(frames[2]->getOffset(), 5);
    EXPECT_TRUE(frames[2]->getStack().isEmpty());
}

TEST_F(CodeAttributeTest, shiftMovesFromTheThresholdOnButAllLines) {
    ParsedClass parsed(branching(52));
    parsed.code("m")->shiftExceptionTableAndLineNumbers(7, 5);
    const ReferenceClass result = rewritten(parsed);
    const ReferenceMethod& m = *result.method("m");
    EXPECT_EQ(m.handlers[0].start, 0);
    EXPECT_EQ(m.handlers[0].end, 4);
    EXPECT_EQ(m.handlers[0].handler, 12);
    EXPECT_EQ(result.frames(m)[1].offset, 12);
    EXPECT_EQ(m.codeAttributes[0].second, B::u2(2) + B::u2(7) + B::u2(10) + B::u2(12) + B::u2(11));
    ParsedClass unmoved(branching(52));
    unmoved.code("m")->shiftExceptionTableAndLineNumbers(7, 6);
    const ReferenceClass second = rewritten(unmoved);
    EXPECT_EQ(second.frames(*second.method("m"))[1].offset, 5);
}

TEST_F(CodeAttributeTest, handlersAreAddedInsideOutAndMoveWithTheirFrames) {
    ParsedClass old(branching(49));
    CodeAttribute* const code = old.code("m");
    EXPECT_EQ(code->getCorrectExceptionHandlerIndex(0), 6);
    EXPECT_EQ(code->getCorrectExceptionHandlerIndex(1), 4) << "not across the end of a range";
    code->addExceptionHandler(4, 5, 5, INT);
    code->addExceptionHandler(0, 5, 5, INT);
    const auto& table = code->getExceptionTable();
    ASSERT_EQ(table.getSize(), 3);
    EXPECT_EQ(table[0].startPc, 4) << "an inner one comes ahead";
    EXPECT_EQ(table[2].endPc, 5) << "one from the start stays last";
    ParsedClass added(branching(52));
    const VerificationType throwable("Ljava/lang/Throwable;", &added.classFile);
    added.code("m")->addExceptionHandler(0, 4, 4, throwable);
    const ArenaVector<StackMapFrame*>& frames = added.code("m")->getFrames();
    ASSERT_EQ(frames.getSize(), 3);
    EXPECT_EQ(frames[1]->getOffset(), 4);
    EXPECT_EQ(frames[1]->getLocals().getSize(), 1);
    EXPECT_EQ(frames[1]->getStack()[0].getTag(), VERIFICATION_OBJECT);
    ParsedClass moved(branching(52));
    CodeAttribute* const other = moved.code("m");
    other->incExceptionHandlerIndex(0, 3);
    StackMapFrame* const frame = other->getFrames()[1];
    const auto& handler = other->getExceptionTable()[0];
    EXPECT_EQ(frame->getOffset(), 8);
    EXPECT_EQ(handler.handlerPc, 8);
    EXPECT_EQ(handler.endPc, 7);
    EXPECT_EQ(handler.startPc, 0);
    frame->setOffset(9);
    EXPECT_THROW(other->incExceptionHandlerIndex(0, 1), VDKRuntimeException) << "no frame there";
}

TEST_F(CodeAttributeTest, strippingDropsFramesAndLowersTheVersion) {
    ParsedClass parsed(branching(52), true);
    const ReferenceClass result = rewritten(parsed);
    EXPECT_EQ(result.major, 49);
    ASSERT_EQ(result.method("m")->codeAttributes.size(), 1u);
    EXPECT_EQ(result.method("m")->codeAttributes[0].first, "LineNumberTable");
}

TEST_F(CodeAttributeTest, malformedTypeAnnotationsAreDroppedWhenCodeMoves) {
    for (const std::string& body :
         {B::u2(1) + B::u1(0x44) + B::u2(99) + B::u1(0) + B::u2(1) + B::u2(0),
          B::u2(1) + B::u1(0x77) + B::u2(0) + B::u1(0) + B::u2(1) + B::u2(0)}) {
        B builder(52);
        builder.addMethod(9, "m", "()V", 0, 0, B::code({0, 177}), {},
                          {{"RuntimeVisibleTypeAnnotations", body}});
        ParsedClass parsed(builder.build());
        const int map[] = {0, 5, 6};
        parsed.code("m")->shiftTables(CodeOffsets(map, 2));
        EXPECT_TRUE(rewritten(parsed).method("m")->codeAttributes.empty());
    }
}

TEST_F(CodeAttributeTest, constructorFrameKnowsWhenThisIsInitialized) {
    B builder(52);
    builder.addMethod(1, "<init>", "()V", 9, 9, B::code({177}));
    ParsedClass parsed(builder.build());
    const StackMapFrame& initial = *parsed.code("<init>")->getFrames()[0];
    EXPECT_EQ(initial.getLocals()[0].getTag(), VERIFICATION_UNINITIALIZED_THIS);
    EXPECT_EQ(StackMapFrame(&initial, 20, TOP, -1).getLocals()[0].getTag(),
              VERIFICATION_UNINITIALIZED_THIS);
    EXPECT_EQ(StackMapFrame(&initial, 20, TOP, 10).getLocals()[0].getTag(), VERIFICATION_OBJECT);
    EXPECT_EQ(StackMapFrame(&initial, 10, TOP, 10).getLocals()[0].getTag(),
              VERIFICATION_UNINITIALIZED_THIS);
}

TEST_F(CodeAttributeTest, framesThatAskForTooMuchMemoryAreRefused) {
    // One frame of 60000 locals and 60000 frames that repeat it.
    const std::string table = B::u2(60001) + B::u1(255) + B::u2(0) + B::u2(60000) +
                              std::string(60000, '\1') + B::u2(0) + std::string(60000, '\0');
    B builder(52);
    builder.addMethod(9, "m", "()V", 9, 65535, std::string(65000, '\0') + B::u1(177), {},
                      {{"StackMapTable", table}});
    ParsedClass parsed(builder.build());
    EXPECT_THROW(parsed.code("m")->getFrames(), VDKRuntimeException);
    EXPECT_LT(parsed.classFile.getArena().getCommitted(), 200u << 20);
}

// What the JVM refuses must not become valid by being moved.
TEST_F(CodeAttributeTest, tablesThatTheJvmRefusesAreInternalErrors) {
    const std::pair<const char*, std::string> rows[] = {
        {"StackMapTable", B::u2(1) + B::u1(1) + B::u1(0)}, // a byte too many
        {"LineNumberTable", B::u2(1) + B::u2(2) + B::u2(7)},
        {"LocalVariableTable", B::u2(1) + B::u2(0) + B::u2(3) + B::u2(1) + B::u2(1) + B::u2(0)},
        {"LocalVariableTable", B::u2(1) + B::u2(0) + B::u2(2) + B::u2(99) + B::u2(1) + B::u2(0)},
        {"LocalVariableTable", B::u2(1) + B::u2(0) + B::u2(2) + B::u2(1) + B::u2(99) + B::u2(0)},
        {"LocalVariableTable", B::u2(1) + B::u2(0) + B::u2(2) + B::u2(1) + B::u2(1) + B::u2(1)},
    };
    for (const auto& row : rows) {
        for (int decoded = 0; decoded < 2; decoded++) {
            B builder(52);
            builder.addMethod(9, "m", "()V", 0, 1, B::code({0, 177}), {}, {row});
            ParsedClass parsed(builder.build());
            const int map[] = {4, 5, 6};
            EXPECT_THROW(
                {
                    if (decoded == 1) {
                        parsed.code("m")->getFrames();
                    }
                    parsed.code("m")->shiftTables(CodeOffsets(map, 2));
                },
                VDKRuntimeException)
                << row.first << " " << &row - rows;
        }
    }
}

TEST_F(CodeAttributeTest, unknownCodeAttributesAreTold) {
    B builder(52);
    builder.addMethod(9, "m", "()V", 0, 0, B::code({177}), {}, {{"Elsewhere", B::u2(0)}});
    ParsedClass parsed(builder.build());
    ASSERT_NE(parsed.code("m")->findOpaqueAttribute(), nullptr);
    EXPECT_EQ(ParsedClass(branching(52)).code("m")->findOpaqueAttribute(), nullptr);
    // One that no JVM with agents reads does not keep calls out; its positions go.
    for (const char* const name : {"StackMap", "CharacterRangeTable"}) {
        B old(48);
        old.addMethod(9, "m", "()V", 0, 0, B::code({0, 177}), {}, {{name, B::u2(0)}});
        ParsedClass small(old.build());
        EXPECT_EQ(small.code("m")->findOpaqueAttribute(), nullptr);
        const int map[] = {4, 5, 6};
        small.code("m")->shiftTables(CodeOffsets(map, 2));
        EXPECT_TRUE(rewritten(small).method("m")->codeAttributes.empty());
    }
}
