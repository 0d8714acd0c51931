#include "instrument/NativeWrapping.h"

#include "instrument/LoaderDelegation.h"
#include "instrument/Patchers.h"
#include "support/ClassBuilder.h"
#include "support/ReferenceClass.h"

#include <gtest/gtest.h>

namespace {

using B = ClassBuilder;

const char PREFIX[] = "$$VDK$$";

std::vector<std::string> ourLines;

// Applies a pass to a class and reads the result.
template <typename Pass>
std::string apply(const std::string& bytes, Pass pass, bool* changed) {
    DataInput input(reinterpret_cast<const unsigned char*>(bytes.data()),
                    static_cast<int>(bytes.size()));
    ClassFile classFile(input);
    *changed = pass(&classFile);
    ZVector<unsigned char> output(256);
    DataOutput out(output);
    classFile.writeClass(out);
    return std::string(reinterpret_cast<const char*>(output.data()),
                       static_cast<size_t>(output.getSize()));
}

std::string wrap(const std::string& bytes, bool* changed) {
    return apply(
        bytes,
        [](ClassFile* classFile) {
            return wrapNativeMethods(classFile, PREFIX, NativeSelection(), nullptr);
        },
        changed);
}

class NativeWrapping : public testing::Test {
protected:
    void SetUp() override {
        ourLines.clear();
        Logger::setSink([](const char* line) { ourLines.push_back(line); });
    }
    void TearDown() override { Logger::setSink(nullptr); }
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
    bool changed;
    const std::string bytes = wrap(builder.build(), &changed);
    const ReferenceClass result(bytes.data(), bytes.size());
    ASSERT_TRUE(changed);
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

TEST_F(NativeWrapping, returnInstructionFollowsTheDescriptor) {
    const std::pair<const char*, int> rows[] = {{"()V", 177},  {"()Ljava/lang/String;", 176},
                                                {"()[I", 176}, {"()D", 175},
                                                {"()J", 173},  {"()F", 174},
                                                {"()Z", 172},  {"()I", 172}};
    for (const auto& row : rows) {
        B builder(52);
        builder.addMethod(0x109, "m", row.first);
        bool changed;
        const std::string bytes = wrap(builder.build(), &changed);
        const ReferenceClass result(bytes.data(), bytes.size());
        EXPECT_EQ(static_cast<unsigned char>(result.methods[0].code.back()), row.second)
            << row.first;
    }
}

TEST_F(NativeWrapping, attributesStayWithTheWrapper) {
    B builder(52);
    const int exception = builder.classRef("java/io/IOException");
    builder.addMethod(0x109, "m", "()V", {{"Exceptions", B::u2(1) + B::u2(exception)}});
    bool changed;
    const std::string bytes = wrap(builder.build(), &changed);
    const ReferenceClass result(bytes.data(), bytes.size());
    EXPECT_EQ(result.methods[0].attributes[0].first, "Exceptions");
    EXPECT_TRUE(result.methods[1].attributes.empty());
}

TEST_F(NativeWrapping, listedClassesStayNative) {
    const std::pair<const char*, bool> rows[] = {
        {"java/lang/Object", false},
        {"java/lang/ClassLoader", false},
        {"java/lang/ClassLoader$NativeLibrary", false},
        {"java/lang/Class", false},
        {"java/lang/SecurityManager", false},
        {"java/security/AccessController", false},
        {"sun/misc/Unsafe", false},
        {"sun/reflect/Reflection", false},
        {"java/util/ResourceBundle", false},
        {"java/lang/System", false},
        {"java/lang/Runtime", false},
        {"java/lang/VirtualThread", false},
        {"java/lang/StackStreamFactory", false},
        {"java/lang/StackStreamFactory$AbstractStackWalker", false},
        {"java/lang/StackTraceElement", false},
        {"java/lang/invoke/MethodHandleNatives", false},
        {"java/lang/invoke/MethodHandle", false},
        {"java/lang/invoke/VarHandle", false},
        {"java/lang/ref/Reference", false},
        {"java/lang/ref/Finalizer", false},
        {"jdk/internal/util/SystemProps$Raw", false},
        {"jdk/internal/util/SystemProps", true},
        {"java/lang/ThreadGroup", true},
        {"java/lang/ref/PhantomReference", true},
        {"java/lang/ClassValue", true},
        {"java/lang/Throwable", false},
        {"jdk/internal/loader/NativeLibrary", false},
        {"jdk/internal/vm/Continuation", false},
        {"jdk/internal/reflect/Reflection", false},
        {"jdk/internal/misc/Unsafe", false},
        {"java/lang/Thread", false},
        {"java/io/FileInputStream", true},
    };
    for (const auto& row : rows) {
        B builder(52, row.first);
        builder.addMethod(0x109, "m", "()V");
        bool changed;
        wrap(builder.build(), &changed);
        EXPECT_EQ(changed, row.second) << row.first;
    }
    EXPECT_TRUE(logged("-n m"));
}

TEST_F(NativeWrapping, registerNativesAndIntrinsicsStayNative) {
    B builder(52, "java/io/Some");
    const int type = builder.utf8("Ljdk/internal/vm/annotation/IntrinsicCandidate;");
    builder.addMethod(0x109, "registerNatives", "()V");
    builder.addMethod(0x109, "fast", "()V",
                      {{"RuntimeVisibleAnnotations", B::u2(1) + B::u2(type) + B::u2(0)}});
    bool changed;
    wrap(builder.build(), &changed);
    EXPECT_FALSE(changed);
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
        bool changed;
        wrap(builder.build(), &changed);
        EXPECT_EQ(changed, row.wrapped) << &row - rows;
    }
}

TEST_F(NativeWrapping, classesOfLibrariesThatLookForNativesKeepThem) {
    for (const char* const name : {"com/sun/jna/Native", "org/bridj/BridJ"}) {
        B builder(52);
        builder.classRef(name);
        builder.addMethod(0x10a, "m", "()V");
        bool changed;
        wrap(builder.build(), &changed);
        EXPECT_FALSE(changed) << name;
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
    bool changed;
    const std::string bytes = apply(
        builder.build(),
        [](ClassFile* classFile) {
            return wrapNativeMethods(classFile, PREFIX, Loaded(), nullptr);
        },
        &changed);
    const ReferenceClass result(bytes.data(), bytes.size());
    ASSERT_EQ(result.methods.size(), 3u);
    EXPECT_EQ(result.methods[2].name, "$$VDK$$was");
}

TEST_F(NativeWrapping, classWithoutNativesIsLeftAlone) {
    B builder(52);
    builder.addMethod(9, "m", "()V", 0, 0, B::code({177}));
    bool changed;
    EXPECT_EQ(wrap(builder.build(), &changed), builder.build());
    EXPECT_FALSE(changed);
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

bool delegates(ClassFile* classFile) {
    return patchLoaderDelegation(classFile) == Delegation::PATCHED;
}

TEST_F(NativeWrapping, loadersSendNamesOfTheAgentUpwards) {
    B builder(52, "odd/Loader", "java/lang/ClassLoader");
    builder.addMethod(4, "loadClass", "(Ljava/lang/String;Z)Ljava/lang/Class;", 1, 3,
                      B::code({1, 176}));
    builder.addMethod(1, "other", "(Ljava/lang/String;)Ljava/lang/Class;", 1, 2, B::code({1, 176}));
    bool changed;
    const std::string bytes = apply(builder.build(), delegates, &changed);
    ASSERT_TRUE(changed);
    const ReferenceClass result(bytes.data(), bytes.size());
    const ReferenceMethod& m = result.methods[0];
    EXPECT_EQ(m.code.size(), 22u);
    EXPECT_EQ(m.code.substr(20), B::code({1, 176}));
    EXPECT_EQ(m.maxStack, 2);
    const std::vector<ReferenceFrame> frames = result.frames(m);
    ASSERT_EQ(frames.size(), 2u);
    EXPECT_EQ(frames[1].offset, 20);
    EXPECT_EQ(frames[1].locals.size(), 3u);
    EXPECT_EQ(result.methods[1].code.size(), 2u);
    B own(52, "jdk/internal/loader/BuiltinClassLoader", "java/lang/ClassLoader");
    own.addMethod(4, "loadClass", "(Ljava/lang/String;Z)Ljava/lang/Class;", 1, 3,
                  B::code({1, 176}));
    apply(own.build(), delegates, &changed);
    EXPECT_FALSE(changed);
}
