#include "instrument/NativeWrapping.h"

#include "core/ground/Options.h"
#include "instrument/Patchers.h"
#include "support/ClassBuilder.h"
#include "support/ParsedClass.h"
#include "support/ReferenceClass.h"

#include <gtest/gtest.h>

namespace {

using B = ClassBuilder;

const char PREFIX[] = "$$VDK$$";

std::vector<std::string> ourLines;

bool isWrapped(B builder) {
    ParsedClass parsed(builder.build());
    return wrapNativeMethods(&parsed.classFile, PREFIX, NativeSelection(), nullptr);
}

ReferenceClass wrapped(B builder, const NativeSelection& selection = NativeSelection()) {
    ParsedClass parsed(builder.build());
    EXPECT_TRUE(wrapNativeMethods(&parsed.classFile, PREFIX, selection, nullptr));
    const std::string bytes = parsed.write();
    return ReferenceClass(bytes.data(), bytes.size());
}

class NativeWrapping : public testing::Test {
protected:
    void SetUp() override {
        ourLines.clear();
        ourOptions->debugAll = true;
        Logger::setSink([](const char* line) { ourLines.push_back(line); });
    }
    void TearDown() override {
        Logger::setSink(nullptr);
        ourOptions->debugAll = false;
    }
    static bool logged(const std::string& text) {
        for (const std::string& line : ourLines) {
            if (line.find(text) != std::string::npos) {
                return true;
            }
        }
        return false;
    }
};

} // namespace

TEST_F(NativeWrapping, wrapperCallsTheRenamedNative) {
    B builder(52);
    builder.addMethod(0x109, "plain", "()V");
    builder.addMethod(0x131, "mixed", "(JI[J)D");
    const ReferenceClass result = wrapped(builder);
    ASSERT_EQ(result.methods.size(), 4u);
    EXPECT_EQ(result.methods[2].name, "$$VDK$$plain");
    EXPECT_EQ(result.methods[3].name, "$$VDK$$mixed");
    // Static and native stay; the rest makes it invisible.
    EXPECT_EQ(result.methods[2].flags, 0x110a);
    EXPECT_EQ(result.methods[3].flags, 0x1102);
    const ReferenceMethod& plain = result.methods[0];
    EXPECT_EQ(plain.flags, 0x9);
    EXPECT_EQ(plain.code.size(), 4u);
    EXPECT_EQ(static_cast<unsigned char>(plain.code[0]), 184);
    EXPECT_EQ(plain.maxStack, 0);
    EXPECT_EQ(plain.maxLocals, 0);
    const ReferenceMethod& mixed = result.methods[1];
    // The monitor stays with the wrapper.
    EXPECT_EQ(mixed.flags, 0x31);
    EXPECT_EQ(mixed.code.substr(0, 6), B::code({42, 31, 21, 3, 25, 4}));
    EXPECT_EQ(static_cast<unsigned char>(mixed.code[6]), 183);
    EXPECT_EQ(static_cast<unsigned char>(mixed.code[9]), 175);
    EXPECT_EQ(mixed.maxStack, 5);
    EXPECT_EQ(mixed.maxLocals, 5);
    EXPECT_TRUE(logged("N plain"));
}

TEST_F(NativeWrapping, attributesStayWithTheWrapper) {
    B builder(52);
    const int exception = builder.classRef("java/io/IOException");
    builder.addMethod(0x109, "m", "()V", {{"Exceptions", B::u2(1) + B::u2(exception)}});
    const ReferenceClass result = wrapped(builder);
    EXPECT_EQ(result.methods[0].attributes[0].first, "Exceptions");
    EXPECT_TRUE(result.methods[1].attributes.empty());
}

TEST_F(NativeWrapping, listedClassesStayNative) {
    const std::pair<const char*, bool> rows[] = {
        {"java/lang/Object", false},
        {"java/lang/ClassLoader$NativeLibrary", false},
        {"java/lang/Throwable", false},
        {"java/lang/Thread", false},
        {"java/lang/invoke/VarHandle", false},
        {"jdk/internal/vm/Continuation", false},
        {"jdk/internal/util/SystemProps$Raw", false},
        // Beside what is listed.
        {"jdk/internal/util/SystemProps", true},
        {"java/lang/ThreadGroup", true},
        {"java/lang/ref/PhantomReference", true},
        {"java/lang/ClassValue", true},
        {"java/io/FileInputStream", true},
    };
    for (const auto& row : rows) {
        B builder(52, row.first);
        builder.addMethod(0x109, "m", "()V");
        EXPECT_EQ(isWrapped(builder), row.second) << row.first;
    }
    EXPECT_TRUE(logged("-n m"));
}

TEST_F(NativeWrapping, registerNativesAndIntrinsicsStayNative) {
    B builder(52, "java/io/Some");
    const int type = builder.utf8("Ljdk/internal/vm/annotation/IntrinsicCandidate;");
    builder.addMethod(0x109, "registerNatives", "()V");
    builder.addMethod(0x109, "fast", "()V",
                      {{"RuntimeVisibleAnnotations", B::u2(1) + B::u2(type) + B::u2(0)}});
    EXPECT_FALSE(isWrapped(builder));
    EXPECT_TRUE(logged("-n registerNatives"));
    EXPECT_TRUE(logged("-n fast"));
}

TEST_F(NativeWrapping, computedSerialVersionsKeepTheirNatives) {
    const char* const object = "java/lang/Object";
    const struct {
        const char* super;
        const char* interface;
        const char* field;
        int methodFlags;
        bool wrapped;
    } rows[] = {
        {object, "java/io/Serializable", nullptr, 0x101, false},
        {object, "java/io/Externalizable", nullptr, 0x101, false},
        {object, "java/io/Serializable", "serialVersionUID", 0x101, true},
        {object, "java/io/Serializable", "other", 0x101, false},
        {object, "java/io/Serializable", nullptr, 0x102, true}, // private: not counted
        {object, "java/io/Closeable", nullptr, 0x101, true},
        {object, "p/Unknown", nullptr, 0x101, false},
        {"p/Unknown", "java/io/Closeable", nullptr, 0x101, false},
        {"p/Unknown", "java/io/Closeable", nullptr, 0x102, true},
        {"p/Unknown", "java/io/Closeable", "serialVersionUID", 0x101, true},
        {"java/lang/Thread", "java/lang/Runnable", nullptr, 0x101, true},
    };
    for (const auto& row : rows) {
        B builder(52, "odd/Some", row.super);
        builder.addInterface(row.interface);
        if (row.field != nullptr) {
            builder.addField(0x1a, row.field, "J");
        }
        builder.addMethod(row.methodFlags, "m", "()V");
        EXPECT_EQ(isWrapped(builder), row.wrapped) << &row - rows;
    }
}

TEST_F(NativeWrapping, classesOfLibrariesThatLookForNativesKeepThem) {
    for (const char* const name : {"com/sun/jna/Native", "org/bridj/BridJ"}) {
        B builder(52);
        builder.classRef(name);
        builder.addMethod(0x10a, "m", "()V");
        EXPECT_FALSE(isWrapped(builder)) << name;
    }
}

TEST_F(NativeWrapping, aRedefinitionWrapsWhatWasWrapped) {
    struct Loaded : NativeSelection {
        bool isRedefinition() const override { return true; }
        bool wasWrapped(const MethodInfo* method) const override {
            return method->getName() == "was";
        }
    };
    B builder(52, "odd/Some", "p/Unknown");
    builder.addMethod(0x101, "was", "()V");
    builder.addMethod(0x102, "wasNot", "()V");
    const ReferenceClass result = wrapped(builder, Loaded());
    ASSERT_EQ(result.methods.size(), 3u);
    EXPECT_EQ(result.methods[2].name, "$$VDK$$was");
}

TEST_F(NativeWrapping, callbackBodiesAreSwitchedOneByOne) {
    B builder(51, "com/vandrik/runtime/Callback");
    builder.addMethod(9, "vdkInit", "(Ljava/lang/Object;I)I", 1, 2, B::code({2, 172}));
    builder.addMethod(9, "vdkMethodEntry", "(SS)V", 0, 2, B::code({177}));
    builder.addMethod(9, "vdkMethodExit", "(SS)V", 0, 2, B::code({177}));
    builder.addMethod(9, "vdkMethodCatch", "(SS)V", 0, 2, B::code({177}));
    const std::string stored = builder.build();
    ZVector<unsigned char> input(16);
    memcpy(input.extend(static_cast<int>(stored.size())), stored.data(), stored.size());
    ZVector<unsigned char> traced(16);
    patchCallbackToEnableTracing(input, traced);
    const ReferenceClass first(traced.data(), static_cast<size_t>(traced.getSize()));
    for (int i = 1; i <= 3; i++) {
        const std::string& code = first.methods[static_cast<size_t>(i)].code;
        ASSERT_EQ(code.size(), 6u);
        EXPECT_EQ(code.substr(0, 3), B::code({26, 27, 184}));
        EXPECT_EQ(static_cast<unsigned char>(code[5]), 177);
    }
    EXPECT_EQ(first.methods[0].code, B::code({2, 172}));
    ZVector<unsigned char> both(16);
    patchCallbackToEnableAllocations(traced, both);
    const ReferenceClass second(both.data(), static_cast<size_t>(both.getSize()));
    EXPECT_EQ(second.methods[0].code.substr(0, 3), B::code({42, 27, 184}));
    EXPECT_EQ(second.methods[1].code.size(), 6u);
    // Another output is asked for.
    EXPECT_THROW(patchCallbackToEnableTracing(input, traced), VDKRuntimeException);
}
