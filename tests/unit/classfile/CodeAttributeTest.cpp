#include "classfile/ClassFile.h"
#include "support/ClassBuilder.h"
#include "support/ReferenceClass.h"

#include <gtest/gtest.h>

namespace {

using B = ClassBuilder;

// A class parsed from bytes that live as long as it.
struct Parsed {
    explicit Parsed(const std::string& bytes, bool strip = false)
        : text(bytes),
          input(reinterpret_cast<const unsigned char*>(text.data()), static_cast<int>(text.size())),
          classFile(input, strip) {}
    MethodInfo* method(const char* name) {
        bool ambiguous;
        return classFile.findFirstMethod(name, &ambiguous);
    }
    CodeAttribute* code(const char* name) { return method(name)->getCodeAttribute(); }
    ReferenceClass write() {
        ZVector<unsigned char> bytes(64);
        DataOutput output(bytes);
        classFile.writeClass(output);
        return ReferenceClass(bytes.data(), static_cast<size_t>(bytes.getSize()));
    }
    std::string text;
    DataInput input;
    ClassFile classFile;
};

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

class CodeAttributeTest : public testing::Test {
protected:
    void SetUp() override {
        Logger::setSink([](const char*) {});
    }
    void TearDown() override { Logger::setSink(nullptr); }
};

std::string frameText(const StackMapFrame& frame, const StackMapFrame& previous) {
    std::string bytes(static_cast<size_t>(frame.getLargestSize()), '\0');
    auto* const start = reinterpret_cast<unsigned char*>(&bytes[0]);
    bytes.resize(static_cast<size_t>(frame.writeTo(&previous, start) - start));
    return bytes;
}

const VerificationType TOP(VERIFICATION_TOP, -1);
const VerificationType INT(VERIFICATION_INT, -1);
const VerificationType LONG(VERIFICATION_LONG, -1);

} // namespace

TEST_F(CodeAttributeTest, oldBodiesHaveNoFrames) {
    Parsed parsed(branching(49));
    EXPECT_FALSE(parsed.code("m")->hasStackMaps());
    parsed.code("m")->shiftExceptionTableAndLineNumbers(3, 0);
    EXPECT_THROW(parsed.code("m")->getFrames(), VDKRuntimeException);
}

TEST_F(CodeAttributeTest, bodyWithoutATableHasTheInitialFrameAlone) {
    B builder(50);
    builder.addMethod(1, "m", "(J[I)V", 0, 4, B::code({177}));
    Parsed parsed(builder.build());
    ASSERT_EQ(parsed.code("m")->getFrames().getSize(), 1);
    const StackMapFrame& initial = *parsed.code("m")->getFrames()[0];
    EXPECT_EQ(initial.getOffset(), -1);
    ASSERT_EQ(initial.getLocals().getSize(), 3);
    EXPECT_EQ(initial.getLocals()[0].getTag(), VERIFICATION_OBJECT);
    EXPECT_EQ(initial.getLocals()[1].getTag(), VERIFICATION_LONG);
    EXPECT_EQ(parsed.classFile.getConstantPool().getClassName(initial.getLocals()[2].getValue()),
              "[I");
    parsed.code("m")->setModified();
    EXPECT_TRUE(parsed.write().method("m")->codeAttributes.empty());
}

TEST_F(CodeAttributeTest, addedFrameMakesATable) {
    B builder(50);
    builder.addMethod(9, "m", "()V", 0, 0, B::code({0, 177}));
    Parsed parsed(builder.build());
    ZVector<int> offsets;
    offsets.push(1);
    parsed.code("m")->addStackMapFrames(offsets, 0, TOP, -1);
    const ReferenceClass result = parsed.write();
    const std::vector<ReferenceFrame> frames = result.frames(*result.method("m"));
    ASSERT_EQ(frames.size(), 2u);
    EXPECT_EQ(frames[1].offset, 1);
}

TEST_F(CodeAttributeTest, addStackMapFramesKeepsAnExistingFrame) {
    Parsed parsed(branching(52));
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

TEST_F(CodeAttributeTest, classWrittenTwiceHasItsTableOnce) {
    Parsed parsed(branching(52));
    parsed.code("m")->getFrames();
    parsed.write();
    EXPECT_EQ(parsed.write().method("m")->codeAttributes.size(), 2u);
}

TEST_F(CodeAttributeTest, shiftMovesFromTheThresholdOnButAllLines) {
    Parsed parsed(branching(52));
    parsed.code("m")->shiftExceptionTableAndLineNumbers(7, 5);
    const ReferenceClass result = parsed.write();
    const ReferenceMethod& m = *result.method("m");
    EXPECT_EQ(m.handlers[0].start, 0);
    EXPECT_EQ(m.handlers[0].end, 4);
    EXPECT_EQ(m.handlers[0].handler, 12);
    EXPECT_EQ(result.frames(m)[1].offset, 12);
    EXPECT_EQ(m.codeAttributes[0].second, B::u2(2) + B::u2(7) + B::u2(10) + B::u2(12) + B::u2(11));
    Parsed unmoved(branching(52));
    unmoved.code("m")->shiftExceptionTableAndLineNumbers(7, 6);
    const ReferenceClass second = unmoved.write();
    EXPECT_EQ(second.frames(*second.method("m"))[1].offset, 5);
}

TEST_F(CodeAttributeTest, mapMovesEverythingAndTheEndOfTheCode) {
    B builder(52);
    builder.addMethod(
        9, "m", "(I)V", 1, 1, B::code({26, 153, 0, 4, 0, 177}), {{0, 6, 5, 0}},
        {{"LineNumberTable", B::u2(1) + B::u2(4) + B::u2(10)},
         {"LocalVariableTable", B::u2(2) + B::u2(0) + B::u2(6) + B::u2(1) + B::u2(1) + B::u2(0) +
                                    B::u2(4) + B::u2(1) + B::u2(1) + B::u2(1) + B::u2(0)},
         {"StackMapTable", B::u2(1) + B::u1(5)}});
    Parsed parsed(builder.build());
    const int map[] = {0, 1, 2, 3, 10, 11, 20};
    parsed.code("m")->shiftTables(CodeOffsets(map, 6));
    const ReferenceClass result = parsed.write();
    const ReferenceMethod& m = *result.method("m");
    EXPECT_EQ(m.handlers[0].end, 20);
    EXPECT_EQ(m.handlers[0].handler, 11);
    EXPECT_EQ(m.codeAttributes[0].second, B::u2(1) + B::u2(10) + B::u2(10));
    EXPECT_EQ(m.codeAttributes[1].second.substr(2, 4), B::u2(0) + B::u2(20));
    EXPECT_EQ(m.codeAttributes[1].second.substr(12, 4), B::u2(10) + B::u2(1));
    EXPECT_EQ(result.frames(m)[1].offset, 11);
}

TEST_F(CodeAttributeTest, framesMovedAsBytesAndAsObjectsAreEqual) {
    // Frames of every form, 100 positions apart after the move; a new object is named by its
    // instruction, which ends where the next position lies.
    const std::string table = B::u2(6) + B::u1(0) + B::u1(64) + B::u1(1) + B::u1(252) + B::u2(0) +
                              B::u1(8) + B::u2(2) + B::u1(250) + B::u2(0) + B::u1(247) + B::u2(0) +
                              B::u1(8) + B::u2(1) + B::u1(255) + B::u2(1) + B::u2(1) + B::u1(4) +
                              B::u2(2) + B::u1(8) + B::u2(0) + B::u1(1);
    std::string results[2];
    for (int decoded = 0; decoded < 2; decoded++) {
        B builder(52);
        builder.addMethod(9, "m", "(I)V", 9, 9, std::string(9, '\0') + B::u1(177), {},
                          {{"StackMapTable", table}});
        Parsed parsed(builder.build());
        if (decoded == 1) {
            parsed.code("m")->getFrames();
        }
        int map[11];
        for (int i = 0; i < 11; i++) {
            map[i] = i * 100;
        }
        parsed.code("m")->shiftTables(CodeOffsets(map, 10));
        const ReferenceClass result = parsed.write();
        for (const ReferenceFrame& frame : result.frames(*result.method("m"))) {
            results[decoded] += std::to_string(frame.offset) + ":";
            for (const std::string& type : frame.locals) {
                results[decoded] += type + ",";
            }
            results[decoded] += "|";
            for (const std::string& type : frame.stack) {
                results[decoded] += type + ",";
            }
            results[decoded] += "\n";
        }
    }
    EXPECT_EQ(results[0], results[1]);
    EXPECT_NE(results[0].find("200:int,new 299,|"), std::string::npos) << results[0];
    EXPECT_NE(results[0].find("600:long,|new 99,int,"), std::string::npos) << results[0];
}

TEST_F(CodeAttributeTest, handlerFromTheStartStaysLast) {
    Parsed parsed(branching(49));
    parsed.code("m")->addExceptionHandler(0, 5, 5, INT);
    auto& table = parsed.code("m")->getExceptionTable();
    ASSERT_EQ(table.getSize(), 2);
    EXPECT_EQ(table[1].endPc, 5);
}

TEST_F(CodeAttributeTest, innerHandlerComesAheadOfEarlierOnes) {
    Parsed parsed(branching(49));
    CodeAttribute* const code = parsed.code("m");
    code->addExceptionHandler(4, 5, 5, INT);
    EXPECT_EQ(code->getExceptionTable()[0].startPc, 4);
    EXPECT_EQ(code->getExceptionTable()[1].startPc, 0);
    // Everything in the table starts later: it stays last.
    B builder(49);
    builder.addMethod(9, "m", "()V", 0, 0, B::code({0, 0, 0, 0, 0, 177}), {{3, 4, 5, 0}});
    Parsed later(builder.build());
    later.code("m")->addExceptionHandler(1, 2, 5, INT);
    EXPECT_EQ(later.code("m")->getExceptionTable()[1].startPc, 1);
}

TEST_F(CodeAttributeTest, handlerGetsAFrameWithTheInitialLocals) {
    Parsed parsed(branching(52));
    parsed.code("m")->addExceptionHandler(
        0, 4, 4, VerificationType("Ljava/lang/Throwable;", &parsed.classFile));
    const ArenaVector<StackMapFrame*>& frames = parsed.code("m")->getFrames();
    ASSERT_EQ(frames.getSize(), 3);
    EXPECT_EQ(frames[1]->getOffset(), 4);
    EXPECT_EQ(frames[1]->getLocals().getSize(), 1);
    EXPECT_EQ(frames[1]->getStack()[0].getTag(), VERIFICATION_OBJECT);
}

TEST_F(CodeAttributeTest, movingAHandlerMovesItsFrame) {
    Parsed parsed(branching(52));
    parsed.code("m")->incExceptionHandlerIndex(0, 3);
    EXPECT_EQ(parsed.code("m")->getFrames()[1]->getOffset(), 8);
    EXPECT_EQ(parsed.code("m")->getExceptionTable()[0].handlerPc, 8);
    EXPECT_EQ(parsed.code("m")->getExceptionTable()[0].endPc, 7);
    EXPECT_EQ(parsed.code("m")->getExceptionTable()[0].startPc, 0);
    // Another time there is no frame at the handler.
    parsed.code("m")->getFrames()[1]->setOffset(9);
    EXPECT_THROW(parsed.code("m")->incExceptionHandlerIndex(0, 1), VDKRuntimeException);
}

TEST_F(CodeAttributeTest, catchAllMayNotCrossTheEndOfAnEarlierRange) {
    Parsed parsed(branching(49));
    EXPECT_EQ(parsed.code("m")->getCorrectExceptionHandlerIndex(0), 6);
    EXPECT_EQ(parsed.code("m")->getCorrectExceptionHandlerIndex(1), 4);
}

TEST_F(CodeAttributeTest, limitsNeverPassTheCap) {
    B builder(49);
    builder.addMethod(9, "m", "()V", 32766, 32767, B::code({177}));
    Parsed parsed(builder.build());
    CodeAttribute* const code = parsed.code("m");
    code->incMaxStackCount(5);
    EXPECT_EQ(code->getMaxStack(), 32767);
    code->ensureStackCapacity(40000);
    EXPECT_EQ(code->getMaxStack(), 32767);
    EXPECT_EQ(code->addLocalVariableToTable(LONG, true), 32765);
    EXPECT_EQ(code->getMaxLocals(), 32767);
}

TEST_F(CodeAttributeTest, attributeLengthFollowsTheCode) {
    Parsed parsed(branching(52));
    CodeAttribute* const code = parsed.code("m");
    const int before = code->getAttributeLength();
    const unsigned char longer[] = {26, 153, 0, 4, 0, 0, 0, 0, 177};
    code->setCode(longer, 9);
    EXPECT_EQ(code->getAttributeLength(), before + 3);
}

TEST_F(CodeAttributeTest, smallestBodyTakesNineteenBytes) {
    B builder(49);
    builder.utf8("Code");
    Parsed parsed(builder.build());
    CodeAttribute code(parsed.classFile.getConstantPool(), 1);
    ZVector<unsigned char> bytes;
    DataOutput output(bytes);
    code.write(output);
    EXPECT_EQ(bytes.getSize(), 6 + 13);
}

TEST_F(CodeAttributeTest, strippingDropsFramesAndLowersTheVersion) {
    Parsed parsed(branching(52), true);
    const ReferenceClass result = parsed.write();
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
        Parsed parsed(builder.build());
        const int map[] = {0, 5, 6};
        parsed.code("m")->shiftTables(CodeOffsets(map, 2));
        EXPECT_TRUE(parsed.write().method("m")->codeAttributes.empty());
    }
}

TEST_F(CodeAttributeTest, typeAnnotationPositionsMoveWithTheCode) {
    const std::string tail = B::u1(0) + B::u2(1) + B::u2(0);
    B builder(52);
    builder.addMethod(9, "m", "()V", 0, 0, B::code({0, 0, 177}), {},
                      {{"RuntimeInvisibleTypeAnnotations",
                        B::u2(2) + B::u1(0x40) + B::u2(1) + B::u2(1) + B::u2(2) + B::u2(7) + tail +
                            B::u1(0x47) + B::u2(2) + B::u1(3) + tail}});
    Parsed parsed(builder.build());
    const int map[] = {4, 5, 16, 20};
    parsed.code("m")->shiftTables(CodeOffsets(map, 3));
    EXPECT_EQ(parsed.write().method("m")->codeAttributes[0].second,
              B::u2(2) + B::u1(0x40) + B::u2(1) + B::u2(5) + B::u2(15) + B::u2(7) + tail +
                  B::u1(0x47) + B::u2(16) + B::u1(3) + tail);
}

TEST_F(CodeAttributeTest, framesTakeTheirMostCompactForm) {
    B builder(52);
    builder.addMethod(9, "m", "(II)V", 9, 9, B::code({177}));
    Parsed parsed(builder.build());
    const StackMapFrame& initial = *parsed.code("m")->getFrames()[0];
    StackMapFrame frame(&initial, 0, TOP, -1);
    EXPECT_EQ(frameText(frame, initial), B::u1(0));
    frame.setOffset(63);
    EXPECT_EQ(frameText(frame, initial), B::u1(63));
    frame.setOffset(64);
    EXPECT_EQ(frameText(frame, initial), B::u1(251) + B::u2(64));
    StackMapFrame item(&initial, 5, INT, -1);
    EXPECT_EQ(frameText(item, initial), B::code({69, 1}));
    item.setOffset(64);
    EXPECT_EQ(frameText(item, initial), B::u1(247) + B::u2(64) + B::u1(1));
    StackMapFrame grown(&initial, 0, TOP, -1);
    for (int added = 1; added <= 3; added++) {
        grown.getLocals().push(INT);
        EXPECT_EQ(frameText(grown, initial),
                  B::u1(251 + added) + B::u2(0) + std::string(static_cast<size_t>(added), 1));
    }
    // Four more locals are a full frame.
    grown.getLocals().push(INT);
    EXPECT_EQ(frameText(grown, initial),
              B::u1(255) + B::u2(0) + B::u2(6) + std::string(6, 1) + B::u2(0));
    StackMapFrame chopped(&initial, 0, TOP, -1);
    chopped.getLocals().pop();
    EXPECT_EQ(frameText(chopped, initial), B::u1(250) + B::u2(0));
    // An empty list is not compared.
    chopped.getLocals().pop();
    EXPECT_EQ(frameText(chopped, initial), B::u1(249) + B::u2(0));
    StackMapFrame changed(&initial, 0, TOP, -1);
    changed.getLocals()[1] = LONG;
    EXPECT_EQ(VerificationType::compare(changed.getLocals(), initial.getLocals()), 104);
    EXPECT_EQ(frameText(changed, initial),
              B::u1(255) + B::u2(0) + B::u2(2) + B::code({1, 4}) + B::u2(0));
    EXPECT_THROW(frameText(initial, initial), VDKRuntimeException);
}

TEST_F(CodeAttributeTest, constructorFrameKnowsWhenThisIsInitialized) {
    B builder(52);
    builder.addMethod(1, "<init>", "()V", 9, 9, B::code({177}));
    Parsed parsed(builder.build());
    const StackMapFrame& initial = *parsed.code("<init>")->getFrames()[0];
    EXPECT_EQ(initial.getLocals()[0].getTag(), VERIFICATION_UNINITIALIZED_THIS);
    EXPECT_EQ(StackMapFrame(&initial, 20, TOP, -1).getLocals()[0].getTag(),
              VERIFICATION_UNINITIALIZED_THIS);
    EXPECT_EQ(StackMapFrame(&initial, 20, TOP, 10).getLocals()[0].getTag(), VERIFICATION_OBJECT);
    EXPECT_EQ(StackMapFrame(&initial, 10, TOP, 10).getLocals()[0].getTag(),
              VERIFICATION_UNINITIALIZED_THIS);
}

TEST_F(CodeAttributeTest, addedLocalsLandInTheirSlots) {
    B builder(52);
    builder.addMethod(9, "m", "(J)V", 9, 9, B::code({177}));
    Parsed parsed(builder.build());
    const StackMapFrame& initial = *parsed.code("m")->getFrames()[0];
    StackMapFrame frame(&initial, 0, TOP, -1);
    ArenaVector<VerificationType> added(parsed.classFile.getArena());
    added.push(LONG);
    frame.addLocalVariables(added, 6);
    // long (slots 0, 1), top, top, long (4, 5).
    ASSERT_EQ(frame.getLocals().getSize(), 4);
    EXPECT_EQ(frame.getLocals()[2].getTag(), VERIFICATION_TOP);
    EXPECT_EQ(frame.getLocals()[3].getTag(), VERIFICATION_LONG);
    StackMapFrame bare(&initial, 0, TOP, -1);
    added.clear();
    added.push(TOP);
    bare.addLocalVariables(added, 6);
    EXPECT_EQ(bare.getLocals().getSize(), 1);
}

TEST_F(CodeAttributeTest, framesThatAskForTooMuchMemoryAreRefused) {
    // One frame of 60000 locals and 60000 frames that repeat it.
    const std::string table = B::u2(60001) + B::u1(255) + B::u2(0) + B::u2(60000) +
                              std::string(60000, '\1') + B::u2(0) + std::string(60000, '\0');
    B builder(52);
    builder.addMethod(9, "m", "()V", 9, 65535, std::string(65000, '\0') + B::u1(177), {},
                      {{"StackMapTable", table}});
    Parsed parsed(builder.build());
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
            Parsed parsed(builder.build());
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
    Parsed parsed(builder.build());
    ASSERT_NE(parsed.code("m")->findOpaqueAttribute(), nullptr);
    EXPECT_EQ(Parsed(branching(52)).code("m")->findOpaqueAttribute(), nullptr);
    // One that no JVM with agents reads does not keep calls out; its positions go.
    for (const char* const name : {"StackMap", "CharacterRangeTable"}) {
        B old(48);
        old.addMethod(9, "m", "()V", 0, 0, B::code({0, 177}), {}, {{name, B::u2(0)}});
        Parsed small(old.build());
        EXPECT_EQ(small.code("m")->findOpaqueAttribute(), nullptr);
        const int map[] = {4, 5, 6};
        small.code("m")->shiftTables(CodeOffsets(map, 2));
        EXPECT_TRUE(small.write().method("m")->codeAttributes.empty());
    }
}
