#include "support/ClassBuilder.h"
#include "support/ParsedClass.h"
#include "support/ReferenceClass.h"

#include <gtest/gtest.h>

namespace {

using B = ClassBuilder;

using ClassFileTest = QuietTest;

std::string sample() {
    B builder(52);
    builder.addMethod(0x401, "over", "()V");
    builder.addMethod(0x401, "over", "(I)V");
    builder.addMethod(0x401, "only", "(IJ[[Ljava/lang/String;D[I)Ljava/lang/Object;",
                      {{"Exceptions", B::u2(1) + B::u2(builder.classRef("java/io/IOException"))},
                       {"RuntimeVisibleParameterAnnotations", B::u1(0)},
                       {"Odd", ""}});
    builder.addMethod(1, "$$macro$$", "()V", 0, 1, B::code({177}));
    builder.addMethod(1, "$$", "()V", 0, 1, B::code({177}));
    builder.addMethod(1, "$$keep", "()V", 0, 1, B::code({177}));
    return builder.build(0x421, {{"SourceFile", B::u2(builder.utf8("x$$macro$$y.java"))}});
}

} // namespace

TEST_F(ClassFileTest, unchangedClassIsTheSameBytes) {
    ParsedClass parsed(sample());
    EXPECT_EQ(parsed.write(), parsed.text);
    parsed.classFile.encodeEverything();
    EXPECT_EQ(parsed.write(), parsed.text);
}

TEST_F(ClassFileTest, unknownConstantLeavesAnInvalidClass) {
    B builder(52);
    builder.raw(B::u1(2));
    ParsedClass parsed(builder.build());
    EXPECT_TRUE(parsed.classFile.isInvalid());
    EXPECT_EQ(parsed.classFile.getMethods().getSize(), 0);
    EXPECT_THROW(parsed.write(), VDKRuntimeException);
}

TEST_F(ClassFileTest, everyTruncationIsAnInternalError) {
    const std::string bytes = sample();
    for (size_t length = 0; length < bytes.size(); length++) {
        EXPECT_THROW(ParsedClass(bytes.substr(0, length)), VDKRuntimeException) << length;
    }
    EXPECT_THROW(ParsedClass(bytes + "x"), VDKRuntimeException);
}

// Entries are appended to the pool, and such an index would mean one of them.
TEST_F(ClassFileTest, indexPastThePoolIsAnInternalError) {
    const int past = B(52).getPoolCount() + 2;
    const std::string entries[] = {
        B::u1(7) + B::u2(past),
        B::u1(8) + B::u2(past),
        B::u1(10) + B::u2(1) + B::u2(past),
        B::u1(12) + B::u2(past) + B::u2(1),
        B::u1(15) + B::u1(6) + B::u2(past),
        B::u1(18) + B::u2(0) + B::u2(past),
        B::u1(19) + B::u2(past),
    };
    for (const std::string& entry : entries) {
        B builder(52);
        builder.utf8("one more");
        builder.raw(entry);
        ASSERT_EQ(builder.getPoolCount(), past);
        EXPECT_THROW(ParsedClass(builder.build()), VDKRuntimeException)
            << static_cast<int>(entry[0]);
    }
    B builder(52);
    const int text = builder.utf8("x");
    const std::string end = B::u2(builder.getPoolCount());
    const std::string empty = builder.build();
    const std::string none = B::u2(0);
    const std::string start = empty.substr(0, empty.size() - 14);
    const std::string head = B::u2(0x21) + B::u2(2) + B::u2(4);
    const std::string one = B::u2(1);
    // Flags, this, super, interfaces, fields, methods, attributes.
    const std::string tails[] = {
        B::u2(0x21) + end + B::u2(4) + none + none + none + none,
        B::u2(0x21) + B::u2(2) + end + none + none + none + none,
        head + one + end + none + none + none,
        head + none + one + none + end + B::u2(text) + none + none + none,
        head + none + one + none + B::u2(text) + end + none + none + none,
        head + none + none + one + none + end + B::u2(text) + none + none,
        head + none + none + one + none + B::u2(text) + end + none + none,
        head + none + none + one + none + B::u2(text) + B::u2(text) + one + end + B::u4(0) + none,
        head + none + none + none + one + end + B::u4(0),
    };
    EXPECT_NO_THROW(ParsedClass(start + head + none + none + none + none));
    for (const std::string& tail : tails) {
        EXPECT_THROW(ParsedClass(start + tail), VDKRuntimeException) << &tail - tails;
    }
}

TEST_F(ClassFileTest, attributeOfTheClassThatNamesAnEntryPastThePoolIsAnInternalError) {
    struct Row {
        const char* name;
        std::string before;
        std::string after;
    };
    const Row rows[] = {
        {"SourceFile", "", ""},
        {"NestHost", "", ""},
        {"EnclosingMethod", B::u2(1), ""},
        {"NestMembers", B::u2(2) + B::u2(1), ""},
        {"InnerClasses", B::u2(2) + B::u2(1) + B::u2(0) + B::u2(1) + B::u2(65535) + B::u2(1),
         B::u2(1) + B::u2(0)},
        {"BootstrapMethods", B::u2(2) + B::u2(1) + B::u2(0) + B::u2(1) + B::u2(1), ""},
        {"BootstrapMethods", B::u2(1) + B::u2(1) + B::u2(2) + B::u2(1), ""},
    };
    for (const Row& row : rows) {
        B builder(52);
        builder.utf8(row.name);
        const int past = builder.getPoolCount();
        const std::string good = row.before + B::u2(past - 1) + row.after;
        const std::string bad = row.before + B::u2(past) + row.after;
        EXPECT_THROW(ParsedClass(builder.build(0x21, {{row.name, bad}})), VDKRuntimeException)
            << row.name;
        EXPECT_NO_THROW(ParsedClass(builder.build(0x21, {{row.name, good}}))) << row.name;
    }
}

TEST_F(ClassFileTest, overloadedNameIsAmbiguous) {
    ParsedClass parsed(sample());
    bool ambiguous = false;
    EXPECT_EQ(parsed.classFile.findFirstMethod("over", &ambiguous)->getDescriptor(), "()V");
    EXPECT_TRUE(ambiguous);
    EXPECT_NE(parsed.classFile.findFirstMethod("only", &ambiguous), nullptr);
    EXPECT_FALSE(ambiguous);
    EXPECT_EQ(parsed.classFile.findFirstMethod("none", &ambiguous), nullptr);
    EXPECT_EQ(parsed.classFile.findMethod("over", "(J)V"), nullptr);
}

TEST_F(ClassFileTest, existingMethodIsFoundWhateverItsFlags) {
    ParsedClass parsed(sample());
    EXPECT_EQ(parsed.classFile.findOrCreateMethod("over", "(I)V", 9), 1);
    EXPECT_EQ(parsed.classFile.getMethods()[1]->getAccessFlags(), 0x401);
    EXPECT_EQ(parsed.classFile.findOrCreateMethod("over", "(J)V", 9), 6);
}

TEST_F(ClassFileTest, descriptorsAreTakenApart) {
    ParsedClass parsed(sample());
    ZVectorSafe<ZString> types;
    MethodInfo* const method = parsed.classFile.getMethods()[2];
    method->getParameterTypes(types);
    const char* const expected[] = {"I", "J", "[[Ljava/lang/String;", "D", "[I"};
    ASSERT_EQ(types.getSize(), 5);
    for (int i = 0; i < 5; i++) {
        EXPECT_EQ(types[i], ZString(expected[i]));
    }
    EXPECT_EQ(method->getReturnType(), ZString("Ljava/lang/Object;"));
    EXPECT_FALSE(method->isVoid());
    EXPECT_EQ(DescriptorTypes::parameterSlots(method->getDescriptor()), 7);
    ZVectorSafe<ZString> none;
    MethodInfo::getParameterTypesBySignature("()V", none);
    MethodInfo::getParameterTypesBySignature("(IL", none);
    EXPECT_EQ(none.getSize(), 0);
    EXPECT_EQ(MethodInfo::getReturnTypeBySignature("plain"), ZString("plain"));
}

TEST_F(ClassFileTest, declaredExceptionsAreListed) {
    ParsedClass parsed(sample());
    ZVectorSafe<ZString> names;
    parsed.classFile.getMethods()[2]->fillExceptions(names);
    ASSERT_EQ(names.getSize(), 1);
    EXPECT_EQ(names[0], ZString("java/io/IOException"));
}

TEST_F(ClassFileTest, macroMethodsVanishAndTheirNamesWithThem) {
    ParsedClass parsed(sample());
    parsed.classFile.removeUnusedMacroMethods();
    const std::string written = parsed.write();
    const ReferenceClass result(written.data(), written.size());
    ASSERT_EQ(result.methods.size(), 4u);
    // "$$" alone counts as a macro name, so its text goes from the names that hold it.
    EXPECT_EQ(result.methods[3].name, "keep");
    EXPECT_NE(written.find("xy.java"), std::string::npos);
}

TEST_F(ClassFileTest, replacementIsNotScannedAgain) {
    ParsedClass parsed(sample());
    ZVectorSafe<ZString> from;
    ZVectorSafe<ZString> to;
    from.push(ZString("over"));
    to.push(ZString("overover"));
    parsed.classFile.patchConstantPool(from, to);
    EXPECT_EQ(parsed.classFile.getMethods()[0]->getName(), "overover");
}

TEST_F(ClassFileTest, annotationsAreFoundByTypeAndPattern) {
    B builder(52);
    const int type = builder.utf8("Lp/Mark;");
    const int other = builder.utf8("Lp/Other;");
    // Other(value = {@Nested, enum, class, int}), Mark
    const std::string body = B::u2(2) + B::u2(other) + B::u2(1) + B::u2(other) + "[" + B::u2(4) +
                             "@" + B::u2(other) + B::u2(0) + "e" + B::u2(1) + B::u2(1) + "c" +
                             B::u2(1) + "I" + B::u2(1) + B::u2(type) + B::u2(0);
    builder.addMethod(0x401, "marked", "()V", {{"RuntimeVisibleAnnotations", body}});
    builder.addMethod(0x401, "plain", "()V");
    ParsedClass parsed(builder.build(0x21, {{"RuntimeInvisibleAnnotations", body}}));
    MethodInfo* const marked = parsed.classFile.getMethods()[0];
    MethodInfo* const plain = parsed.classFile.getMethods()[1];
    EXPECT_TRUE(marked->hasAnnotation("Lp/Mark;"));
    EXPECT_FALSE(marked->hasAnnotation("Lp/None;"));
    EXPECT_FALSE(plain->hasAnnotation("Lp/Mark;"));
    EXPECT_TRUE(parsed.classFile.hasAnnotation("Lp/Mark;"));
    for (const char* const pattern : {"Lp/Mark;", "Lp/*ark;", "*", ""}) {
        EXPECT_TRUE(marked->hasMatchingAnnotation(pattern)) << pattern;
        EXPECT_TRUE(parsed.classFile.hasMatchingAnnotation(pattern)) << pattern;
        EXPECT_EQ(pattern == std::string(), plain->hasMatchingAnnotation(pattern)) << pattern;
    }
    EXPECT_FALSE(marked->hasMatchingAnnotation("Lp/*x;"));
    EXPECT_FALSE(parsed.classFile.hasMatchingAnnotation("p/Mark"));
}

TEST_F(ClassFileTest, strippingNotesModernConstants) {
    B builder(52);
    builder.raw(B::u1(16) + B::u2(1));
    EXPECT_TRUE(ParsedClass(builder.build(), true).classFile.hasJava7Constants());
    EXPECT_FALSE(ParsedClass(builder.build()).classFile.hasJava7Constants());
    EXPECT_EQ(ParsedClass(builder.build(), true).classFile.getMajorVersion(), 49);
}
