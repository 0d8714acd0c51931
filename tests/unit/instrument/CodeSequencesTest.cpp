#include "instrument/BranchWidening.h"
#include "instrument/CodeRewrite.h"
#include "instrument/TracingInstrumentation.h"
#include "support/ClassBuilder.h"
#include "support/ParsedClass.h"
#include "support/ReferenceClass.h"
#include "support/RewriteClasses.h"

#include <gtest/gtest.h>

namespace {

using B = ClassBuilder;

std::string text(const unsigned char* code, int length) {
    return std::string(reinterpret_cast<const char*>(code), static_cast<size_t>(length));
}

// Rewrites a class and reads the result. Ids count from 1 in the order of the methods.
struct Rewritten {
    Rewritten(const std::string& bytes, bool allocations, bool tracing)
        : counts(), result(rewriteClass(bytes.data(), static_cast<int>(bytes.size()), allocations,
                                        tracing, &ids, &counts)),
          parsed(result.empty() ? bytes.data() : result.data(),
                 result.empty() ? bytes.size() : result.size()) {}
    const ReferenceMethod& method(const char* name) { return *parsed.method(name); }
    bool holds(MethodOutcome outcome) const { return counts.methods[outcome] == 1; }
    CountingIds ids;
    InstrumentationCounts counts;
    std::string result;
    ReferenceClass parsed;
};

using CodeSequences = QuietTest;

// A static method without frames.
std::string oneMethod(const std::string& code, int major = 49,
                      const std::string& descriptor = "()V", const B::Attributes& attributes = {},
                      const std::vector<B::Handler>& handlers = {}) {
    B builder(major);
    builder.addMethod(9, "m", descriptor, 4, 4, code, handlers, attributes);
    return builder.build();
}

} // namespace

TEST_F(CodeSequences, bytesAreExact) {
    unsigned char code[32];
    EXPECT_EQ(insertEntryCode(0x0203, 0x00120034, code, 0, -1, false), 9);
    EXPECT_EQ(text(code, 9), B::code({0x11, 0x00, 0x34, 0x11, 0x00, 0x12, 0xb8, 2, 3}));
    EXPECT_EQ(insertEntryCode(0x0203, 0x00120034, code, 0, 0x105, false), 14);
    EXPECT_EQ(text(code, 14),
              B::code({2, 0xc4, 0x36, 1, 5, 0x11, 0x00, 0x34, 0x11, 0x00, 0x12, 0xb8, 2, 3}));
    EXPECT_EQ(insertEntryCode(1, 1, code, 0, -1, true), 16);
    EXPECT_EQ(text(code + 9, 7), std::string(7, '\0'));
    EXPECT_EQ(insertEntryCode(1, 1, code, 0, 7, true), 16);
    EXPECT_EQ(text(code + 14, 2), std::string(2, '\0'));
    EXPECT_EQ(insertExitCode(0x0203, 0x0a0b0c0d, code, 0, true), 12);
    EXPECT_EQ(text(code, 12), B::code({0x11, 0x0c, 0x0d, 0x11, 0x0a, 0x0b, 0xb8, 2, 3, 0, 0, 0}));
    EXPECT_EQ(insertCodeBefore(INSERT_CATCH, 0x0203, 0x0a0b0c0d, code, 0, false), 9);
    EXPECT_EQ(text(code, 9), B::code({0x11, 0x0c, 0x0d, 0x11, 0x0a, 0x0b, 0xb8, 2, 3}));
    EXPECT_EQ(insertAllocOnlyEntryCode(code, 0, 3), 8);
    EXPECT_EQ(text(code, 8), B::code({2, 0xc4, 0x36, 0, 3, 0, 0, 0}));
    EXPECT_EQ(insertAllocOnlyEntryCode(code, 0, -1), 0);
    EXPECT_EQ(insertNewArrayCode(0x0203, code, 0, 3), 12);
    EXPECT_EQ(text(code, 12), B::code({0x59, 0xc4, 0x15, 0, 3, 0xb8, 2, 3, 0xc4, 0x36, 0, 3}));
    EXPECT_EQ(insertNewCodeStart(code, 0, INSERT_NEW_DUP), 4);
    EXPECT_EQ(text(code, 4), B::code({0x59, 0, 0, 0}));
    EXPECT_EQ(insertNewCodeStart(code, 0, INSERT_NEW_CANCELLED), 4);
    EXPECT_EQ(text(code, 4), std::string(4, '\0'));
    EXPECT_EQ(insertNewCodeEnd(0x0203, code, 0, INSERT_OBJECT_CALL, 3), 12);
    EXPECT_EQ(code[0], 0x59);
    EXPECT_EQ(insertNewCodeEnd(0x0203, code, 0, INSERT_OBJECT_CALL_OWN, 3), 12);
    EXPECT_EQ(code[0], 0);
}

TEST_F(CodeSequences, jumpsConvertInPairs) {
    const int pairs[][2] = {{153, 154}, {155, 156}, {157, 158}, {159, 160},
                            {161, 162}, {163, 164}, {165, 166}, {198, 199}};
    for (const auto& pair : pairs) {
        EXPECT_EQ(convertJump(pair[0]), pair[1]);
        EXPECT_EQ(convertJump(pair[1]), pair[0]);
    }
    EXPECT_EQ(convertJump(167), 200);
    EXPECT_EQ(convertJump(168), 201);
    EXPECT_THROW(convertJump(169), VDKRuntimeException);
}

TEST_F(CodeSequences, trivialAccessorsAreLeftAlone) {
    struct Row {
        std::string code;
        bool skipped;
    };
    const Row rows[] = {
        {B::code({177}), true},
        {B::code({4, 172}), true},
        {B::code({0, 0, 177}), false},
        {B::code({178, 0, 1, 176}), true},
        {B::code({179, 0, 1, 177}), false},
        {B::code({42, 180, 0, 1, 176}), true},
        {B::code({43, 180, 0, 1, 176}), false},
        {B::code({26, 179, 0, 1, 177}), true},
        {B::code({27, 179, 0, 1, 177}), false},
        {B::code({42, 27, 181, 0, 1, 177}), true},
        {B::code({42, 28, 181, 0, 1, 177}), false},
        {B::code({42, 27, 0, 181, 0, 1, 177}), false},
    };
    for (const Row& row : rows) {
        ParsedClass parsed(oneMethod(row.code));
        EXPECT_EQ(shouldSkipInstrumentation(parsed.classFile.getMethods()[0]), row.skipped)
            << row.code.size();
    }
}

TEST_F(CodeSequences, asksForNoMoreStackThanTheCallsNeed) {
    const struct {
        std::string code;
        int version;
        int declared;
        int needed;
    } rows[] = {
        {B::code({0, 0, 177}), 52, 0, 2},               // an entry call
        {B::code({0, 3, 172}), 52, 1, 3},               // the result and an exit call
        {B::code({3, 3, 172}), 52, 2, 4},               // something left below the result
        {B::code({3, 3, 3, 87, 87, 172}), 52, 3, 3},    // room enough
        {B::code({3, 3, 3, 87, 87, 172}), 50, 3, 5},    // frames that may not be true
        {B::code({4, 188, 10, 87, 177}), 52, 1, 3},     // the array, its copy and the variable
        {B::code({167, 0, 3, 0, 177}), 52, 1, 3},       // no frame behind a jump
        {B::code({3, 3, 3, 87, 87, 0, 172}), 52, 9, 9}, // more than it uses itself
    };
    for (const auto& row : rows) {
        B builder(row.version);
        builder.addMethod(9, "m", row.code.back() == '\xac' ? "()I" : "()V", row.declared, 1,
                          row.code);
        Rewritten rewritten(builder.build(), true, true);
        EXPECT_EQ(rewritten.method("m").maxStack, row.needed) << &row - rows;
    }
}

// The call stands at the head of the handler, behind the entry call's 9 bytes. Handlers that throw
// on without running anything have none, nor those that an error in the call could lead back to.
TEST_F(CodeSequences, handlersGetACallWhereSomethingMayRun) {
    struct Row {
        const char* what;
        std::string code;
        std::vector<B::Handler> handlers;
        int headsWithCalls;
        int start; // of the last range
    };
    // nop; nop; return; then the handler at 3
    const std::string body = B::code({0, 0, 177});
    const Row rows[] = {
        {"catch", body + B::code({87, 177}), {{0, 2, 3, 0}}, 1, 9},
        {"two ranges, one handler", body + B::code({87, 177}), {{0, 1, 3, 0}, {1, 2, 3, 0}}, 1, 10},
        {"monitor exit",
         body + B::code({76, 42, 195, 43, 191}),
         {{0, 2, 3, 0}, {3, 6, 3, 0}},
         0,
         21},
        {"count taken back", body + B::code({76, 132, 0, 255, 43, 191}), {{0, 2, 3, 0}}, 0, 9},
        {"calls, then throws on", body + B::code({76, 184, 0, 1, 43, 191}), {{0, 2, 3, 0}}, 1, 9},
        {"covers its own store", body + B::code({76, 177}), {{0, 2, 3, 0}, {3, 4, 3, 0}}, 1, 30},
        {"covers more than itself", body + B::code({76, 177}), {{0, 4, 3, 0}}, 0, 9},
        {"covered further up",
         body + B::code({87, 177, 87, 177}),
         {{0, 2, 5, 0}, {5, 6, 3, 0}},
         1,
         41},
        {"no instruction there", B::code({17, 0, 87, 87, 177}), {{0, 3, 2, 0}}, 0, 9},
    };
    for (const Row& row : rows) {
        Rewritten rewritten(oneMethod(row.code, 49, "()V", {}, row.handlers), false, true);
        const ReferenceMethod& m = rewritten.method("m");
        size_t returns = 0;
        for (size_t i = 0; i < row.code.size();) {
            const auto* const bytes = reinterpret_cast<const unsigned char*>(row.code.data());
            returns += isReturnOpcode(bytes[i]) ? 1 : 0;
            i = static_cast<size_t>(
                nextInstruction(bytes, static_cast<int>(row.code.size()), static_cast<int>(i)));
        }
        const size_t calls = 1 + returns + static_cast<size_t>(row.headsWithCalls);
        EXPECT_EQ(m.code.size(), row.code.size() + calls * 9) << row.what;
        EXPECT_EQ(m.handlers.back().start, row.start) << row.what;
        EXPECT_TRUE(rewritten.holds(METHOD_OUTCOME_INSTRUMENTED)) << row.what;
    }
}

// They come behind those of tracing, into handlers of a class of exceptions and the constructors of
// Throwable; without such a place the class stays as it is.
TEST_F(CodeSequences, exceptionsAreToldByCallsOfTheirOwn) {
    const CallSet both = TRACING_CALLS.with(EXCEPTION_CALLS);
    const std::string body = B::code({0, 0, 177, 87, 177});
    const B::Handler all = {0, 2, 3, 0};
    const B::Handler some = {0, 2, 3, 1};
    const struct {
        const char* what;
        const char* className;
        const char* method;
        std::vector<B::Handler> handlers;
        CallSet wanted;
        int start; // of the last range
        std::string code;
    } rows[] = {
        {"catch", "Built", "m", {some}, EXCEPTION_CALLS, 0, B::code({0, 0, 177, 89, 184, 87, 177})},
        {"finally", "Built", "m", {all}, EXCEPTION_CALLS, 0, ""},
        {"both in one place",
         "Built",
         "m",
         {all, some},
         both,
         9,
         B::code(
             {17, 17, 184, 0, 0, 17, 17, 184, 177, 17, 17, 184, 89, 184, 87, 17, 17, 184, 177})},
        {"covers its own store",
         "Built",
         "m",
         {some, {3, 4, 3, 1}},
         EXCEPTION_CALLS,
         7,
         B::code({0, 0, 177, 89, 184, 87, 177})},
        {"a constructor", "Built", "<init>", {}, EXCEPTION_CALLS, 0, ""},
        {"one of all exceptions",
         "java/lang/Throwable",
         "<init>",
         {all},
         EXCEPTION_CALLS,
         0,
         B::code({0, 0, 42, 184, 177, 87, 42, 184, 177})},
        {"a class that is left out", "java/lang/invoke/X", "m", {some}, both, 0, ""},
    };
    for (const auto& row : rows) {
        B builder(49, row.className);
        builder.addMethod(9, row.method, "()V", 4, 4, body, row.handlers);
        const std::string bytes = builder.build();
        CountingIds ids;
        const std::string result =
            rewriteClass(bytes.data(), static_cast<int>(bytes.size()), row.wanted, &ids, nullptr);
        EXPECT_EQ(result.empty(), row.code.empty()) << row.what;
        if (result.empty()) {
            continue;
        }
        const ReferenceClass parsed(result.data(), result.size());
        const ReferenceMethod& m = *parsed.method(row.method);
        const auto* const code = reinterpret_cast<const unsigned char*>(m.code.data());
        const int length = static_cast<int>(m.code.size());
        std::string opcodes;
        for (int i = 0; i < length; i = nextInstruction(code, length, i)) {
            opcodes += B::u1(code[i]);
        }
        EXPECT_EQ(opcodes, row.code) << row.what;
        EXPECT_EQ(m.handlers.empty() ? 0 : m.handlers.back().start, row.start) << row.what;
    }
}

TEST_F(CodeSequences, handlerMayBeginWithAReturn) {
    // areturn with the exception: call, then exit call
    Rewritten result(
        oneMethod(B::code({1, 176, 176}), 49, "()Ljava/lang/Object;", {}, {{0, 1, 2, 0}}), false,
        true);
    EXPECT_EQ(result.method("m").code.size(), 3u + 4 * 9);
    EXPECT_EQ(result.method("m").handlers[0].handler, 9 + 1 + 9 + 1);
}

TEST_F(CodeSequences, opaqueCodeAttributeLeavesTheMethodAlone) {
    Rewritten rewritten(oneMethod(B::code({0, 0, 177}), 49, "()V", {{"Elsewhere", "ab"}}), true,
                        true);
    EXPECT_TRUE(rewritten.holds(METHOD_OUTCOME_OPAQUE_ATTRIBUTE));
    EXPECT_TRUE(rewritten.result.empty());
}

TEST_F(CodeSequences, limitsThatWouldBeLoweredLeaveTheMethodAlone) {
    const struct {
        int stack;
        int locals;
        std::string code;
        MethodOutcome outcome;
    } rows[] = {
        {32766, 1, B::code({0, 0, 177}), METHOD_OUTCOME_LIMITS},
        {32765, 1, B::code({0, 0, 177}), METHOD_OUTCOME_INSTRUMENTED},
        // Entry and exit calls take no local.
        {1, 65535, B::code({0, 0, 177}), METHOD_OUTCOME_INSTRUMENTED},
        {1, 32767, B::code({4, 188, 10, 87, 177}), METHOD_OUTCOME_WITHOUT_ALLOCATIONS},
        {1, 32766, B::code({4, 188, 10, 87, 177}), METHOD_OUTCOME_INSTRUMENTED},
    };
    for (const auto& row : rows) {
        B builder(49);
        builder.addMethod(9, "m", "()V", row.stack, row.locals, row.code);
        Rewritten rewritten(builder.build(), true, true);
        EXPECT_TRUE(rewritten.holds(row.outcome)) << &row - rows;
    }
}

TEST_F(CodeSequences, localsThatDoNotHoldTheParametersLeaveTheMethodAlone) {
    for (int locals = 2; locals <= 3; locals++) {
        B builder(49);
        builder.addMethod(9, "m", "(JI)V", 1, locals, B::code({4, 188, 10, 87, 177}));
        Rewritten rewritten(builder.build(), true, true);
        EXPECT_EQ(rewritten.holds(METHOD_OUTCOME_LIMITS), locals < 3);
        EXPECT_EQ(rewritten.holds(METHOD_OUTCOME_INSTRUMENTED), locals == 3);
    }
}

TEST_F(CodeSequences, methodsStayBelowTheSizeThatTheJvmCompiles) {
    // Above the line already: nothing is lost.
    Rewritten above(oneMethod(std::string(8001, '\0') + B::u1(177)), false, true);
    EXPECT_TRUE(above.holds(METHOD_OUTCOME_INSTRUMENTED));
    // With its array calls it would cross the line.
    std::string arrays;
    for (int i = 0; i < 400; i++) {
        arrays += B::code({4, 188, 10, 87});
    }
    Rewritten shortForm(oneMethod(arrays + std::string(4000, '\0') + B::u1(177)), true, true);
    EXPECT_TRUE(shortForm.holds(METHOD_OUTCOME_WITHOUT_ALLOCATIONS));
    EXPECT_EQ(shortForm.method("m").code.size(), 1600u + 4000 + 1 + 18);
    // Without those and with its handler's call too.
    const std::string caught = std::string(8000 - 30, '\0') + B::code({177, 87, 177});
    Rewritten shortest(oneMethod(caught, 49, "()V", {}, {{0, 1, 7971, 0}}), true, true);
    EXPECT_TRUE(shortest.holds(METHOD_OUTCOME_WITHOUT_HANDLERS));
    EXPECT_EQ(shortest.method("m").code.size(), caught.size() + 27);
}

// What can't be followed costs a log line and the call for one object, not the method.
TEST_F(CodeSequences, allocationsThatCannotBeFollowedAreNamedInTheLog) {
    static std::string logged;
    B probe(49);
    const int object = probe.classRef("java/lang/Object");
    const std::string create = B::u1(187) + B::u2(object) + B::u1(89);
    const std::string notAMethod = B::u1(183) + B::u2(object);
    struct Row {
        std::string code;
        const char* warning; // null for none
    };
    const Row rows[] = {
        {create + notAMethod + B::code({87, 177}),
         "warning: INVOKESPECIAL in Built: unexpected tag 7"},
        {notAMethod + B::u1(177), nullptr},
        {create + B::code({87, 87, 177}),
         "warning: cannot inject object allocation callback due to a bad bytecode pattern "
         "(scala?): Built.m"},
    };
    for (const Row& row : rows) {
        B builder(49);
        builder.classRef("java/lang/Object");
        builder.addMethod(9, "m", "()V", 4, 4, row.code);
        logged.clear();
        Logger::setSink([](const char* line) { logged += std::string(line) + "\n"; });
        Rewritten rewritten(builder.build(), true, true);
        EXPECT_TRUE(rewritten.holds(METHOD_OUTCOME_INSTRUMENTED)) << logged;
        EXPECT_EQ(logged.find("warning: ") != std::string::npos, row.warning != nullptr) << logged;
        if (row.warning != nullptr) {
            EXPECT_NE(logged.find(row.warning), std::string::npos) << logged;
        }
    }
}

TEST_F(CodeSequences, transletsGetNoAllocationCalls) {
    B builder(49, "Sheet", "org/apache/xalan/xsltc/runtime/AbstractTranslet");
    builder.addMethod(9, "m", "()V", 1, 1, B::code({4, 188, 10, 87, 177}));
    Rewritten rewritten(builder.build(), true, true);
    EXPECT_EQ(rewritten.method("m").code.size(), 5u + 18);
}

TEST_F(CodeSequences, listedClassesAndAnnotatedMethodsAreLeftOut) {
    const std::pair<const char*, bool> classes[] = {
        {"jdk/internal/reflect/GeneratedMethodAccessor1", false},
        {"sun/reflect/GeneratedConstructorAccessor7", false},
        {"jdk/internal/vm/Continuation", false},
        {"java/lang/VirtualThread", false},
        {"java/lang/invoke/LambdaForm", false},
        {"jdk/internal/reflect/Reflection", true},
        {"java/lang/Thread", true},
    };
    for (const auto& row : classes) {
        B builder(52, row.first);
        builder.addMethod(9, "m", "()V", 1, 1, B::code({0, 0, 177}));
        Rewritten rewritten(builder.build(), true, true);
        EXPECT_EQ(rewritten.holds(METHOD_OUTCOME_CLASS_LEFT_OUT), !row.second) << row.first;
        EXPECT_EQ(rewritten.holds(METHOD_OUTCOME_INSTRUMENTED), row.second) << row.first;
    }
    struct Row {
        std::vector<std::string> annotations;
        bool leftOut;
    };
    const std::string vm = "Ljdk/internal/vm/annotation/";
    const Row rows[] = {
        {{"Ljdk/internal/misc/ScopedMemoryAccess$Scoped;"}, true},
        {{vm + "ReservedStackAccess;"}, true},
        {{vm + "ChangesCurrentThread;"}, true},
        {{vm + "JvmtiHideEvents;"}, true},
        {{vm + "JvmtiMountTransition;"}, true},
        {{vm + "IntrinsicCandidate;"}, true},
        {{vm + "Hidden;"}, false},
        {{vm + "ForceInline;"}, false},
        {{vm + "ForceInline;", vm + "Hidden;"}, true},
        {{"Ljava/lang/invoke/LambdaForm$Hidden;", vm + "ForceInline;"}, true},
    };
    for (const Row& row : rows) {
        B builder(52);
        std::string body = B::u2(static_cast<int>(row.annotations.size()));
        for (const std::string& annotation : row.annotations) {
            body += B::u2(builder.utf8(annotation)) + B::u2(0);
        }
        builder.addMethod(9, "m", "()V", 1, 1, B::code({0, 0, 177}), {}, {},
                          {{"RuntimeVisibleAnnotations", body}});
        Rewritten rewritten(builder.build(), true, true);
        EXPECT_EQ(rewritten.holds(METHOD_OUTCOME_ANNOTATED), row.leftOut) << row.annotations[0];
    }
}

TEST_F(CodeSequences, rootClassFinalizerAndInitializerAreLeftAlone) {
    B builder(49, "java/lang/Object", "java/lang/Object");
    builder.addMethod(4, "finalize", "()V", 1, 1, B::code({0, 0, 177}));
    builder.addMethod(8, "<clinit>", "()V", 1, 1, B::code({0, 0, 177}));
    builder.addMethod(1, "wait", "()V", 1, 1, B::code({0, 0, 177}));
    Rewritten rewritten(builder.build(), true, true);
    EXPECT_EQ(rewritten.ids.instrumented, 1);
}
