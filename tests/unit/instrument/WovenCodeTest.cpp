#include "classfile/OpCodes.h"
#include "probes/Probes.h"
#include "support/ClassBuilder.h"
#include "support/ParsedClass.h"
#include "support/ReferenceClass.h"
#include "support/WeaveClasses.h"

#include <gtest/gtest.h>

// The woven code itself, of methods built by hand.

namespace {

using B = ClassBuilder;
using WovenCode = QuietTest;

std::string message; // the last one logged

// Opcodes and operands; "#" for an index of the pool.
std::string listing(const std::string& text) {
    const unsigned char* const code = reinterpret_cast<const unsigned char*>(text.data());
    const int length = static_cast<int>(text.size());
    std::string list;
    for (int at = 0; at < length;) {
        const int next = nextInstruction(code, length, at);
        const OpCodeKind kindOf = ourOpCodes[code[at]].kind;
        const bool isPool = kindOf == OPK_INVOKE || kindOf == OPK_NEW || kindOf == OPK_FIELD ||
                            code[at] == OPC_INSTANCEOF || code[at] == OPC_CHECKCAST ||
                            code[at] == OPC_ANEWARRAY || code[at] == OPC_LDC;
        list += (list.empty() ? "" : " ") + std::to_string(code[at]) + (isPool ? "#" : "");
        for (int i = at + 1; i < next && !isPool; i++) {
            list += "." + std::to_string(code[i]);
        }
        at = next;
    }
    return list;
}

struct Outcome {
    std::string code; // as a listing
    ReferenceMethod method;
    int version;
    InstrumentationCounts counts;
};

// Weaves one probe into method m of the class.
Outcome weave(B& builder, const ProbeOutline& outline, const char* method = "m") {
    ParsedClass parsed(builder.build());
    const auto probe = makeProbe(outline);
    RecordingHost host;
    Outcome outcome = {"", {}, 0, {}};
    weaveClass(parsed.classFile, {probe.get()}, &outcome.counts, &host);
    const std::string bytes = parsed.write();
    const ReferenceClass result(bytes.data(), bytes.size());
    outcome.method = *result.method(method);
    outcome.code = listing(outcome.method.code);
    outcome.version = result.major;
    return outcome;
}

const ProbeCallback ENTER_VOID = {"()V", {}};

} // namespace

TEST_F(WovenCode, blocksAsTheyStand) {
    const std::string object = "Ljava/lang/Object;";
    const ProbeCallback enterThis = {"(" + object + ")V", {kind(CALLBACK_THIS)}};
    const ProbeCallback thrown = {"(Ljava/lang/Throwable;)V", {kind(CALLBACK_THROWN_EXCEPTION)}};
    const auto outline = [](const ProbeCallback& enter, const ProbeCallback& exit,
                            const ProbeCallback& exception) {
        ProbeOutline one;
        one.enter = enter;
        one.exit = exit;
        one.thrown = exception;
        return one;
    };
    ProbeOutline replacing =
        outline({}, {"()I", {}}, {"(Ljava/lang/Throwable;)I", {kind(CALLBACK_THROWN_EXCEPTION)}});
    replacing.replaced = "I";
    replacing.swallows = true;
    ProbeOutline tested =
        outline({"()J", {}}, {"(J)V", {kind(CALLBACK_ON_ENTER_RESULT)}}, {"()V", {}});
    tested.instanceOf = "java/lang/Runnable";
    struct Row {
        const char* what;
        int flags;
        const char* descriptor;
        int locals;
        std::string code;
        ProbeOutline probe;
        const char* expected;
    };
    const Row rows[] = {
        {"entry alone", 9, "()V", 0, B::code({177}), outline(ENTER_VOID, {}, {}), "184# 177"},
        {"an unused wide result", 9, "()V", 0, B::code({177}), outline({"()J", {}}, {}, {}),
         "184# 88 177"},
        {"missing, differing and boxed parameters", 9, "(Ljava/lang/Object;I)V", 2, B::code({177}),
         outline({"(DLjava/lang/String;Ljava/lang/Object;Ljava/lang/Object;I)V",
                  {parameter(3), parameter(1), parameter(1), parameter(2), parameter(2)}},
                 {}, {}),
         "14 1 42 27 184# 27 184# 177"},
        {"all parameters", 9, "(IJ)V", 3, B::code({177}),
         outline({"([Ljava/lang/Object;)V", {kind(CALLBACK_PARAMS)}}, {}, {}),
         "5 189# 89 3 26 184# 83 89 4 31 184# 83 184# 177"},
        {"slots above 255", 9, "()I", 300, B::code({4, 172}),
         outline({"()J", {}},
                 {"(JLjava/lang/Object;)V",
                  {kind(CALLBACK_ON_ENTER_RESULT), kind(CALLBACK_RETURN_VALUE)}},
                 {}),
         "184# 196.55.1.44 4 89 196.54.1.46 196.22.1.44 196.21.1.46 184# 184# 172"},
        {"a reassigned parameter is saved", 9, "(IJ)V", 3, B::code({132, 0, 1, 177}),
         outline({}, {"(IJ)V", {parameter(1), parameter(2)}}, {}), "26 62 132.0.1 29 31 184# 177"},
        {"a replaced value, a swallowed exception", 9, "()I", 0, B::code({4, 172}), replacing,
         "4 87 184# 172 75 42 184# 172"},
        {"an exception passed on", 1, "()V", 1, B::code({177}), outline({}, {}, thrown),
         "177 89 76 43 184# 191"},
        {"a `this` that the method clears", 1, "()V", 1, B::code({1, 75, 177}),
         outline({}, enterThis, {}), "42 76 1 75 43 184# 177"},
        {"a test at run time", 1, "()V", 1, B::code({177}), tested,
         "9 64 42 193# 153.0.7 184# 64 42 193# 153.0.7 31 184# 177 42 193# 153.0.6 184# 191"},
        {"a switch", 9, "(I)V", 1, B::code({26, 171, 0, 0, 0, 0, 0, 11, 0, 0, 0, 0, 177}),
         outline(ENTER_VOID, {"()V", {}}, thrown),
         "184# 0 26 171.0.0.0.0.0.11.0.0.0.0 184# 0 177 89 76 43 0 184# 191"},
    };
    for (const Row& row : rows) {
        for (const int version : {48, 52}) {
            B builder(version, "Built",
                      row.probe.instanceOf.empty() ? "java/lang/Object" : "Other");
            builder.addMethod(row.flags, "m", row.descriptor, 2, row.locals, row.code);
            const Outcome outcome = weave(builder, row.probe);
            EXPECT_EQ(outcome.code, row.expected) << row.what << ", version " << version;
            EXPECT_EQ(outcome.version, version);
        }
    }
}

// Those of the method come first, the inner one ahead of the outer one, and go with their code.
TEST_F(WovenCode, handlersWithinEachOtherStayAheadOfTheProbes) {
    B builder(48);
    builder.addMethod(9, "m", "()V", 1, 0, B::code({0, 177, 87, 177, 87, 177}),
                      {{0, 1, 2, 0}, {0, 4, 4, 0}});
    ProbeOutline outline;
    outline.enter = ENTER_VOID;
    outline.exit = ENTER_VOID;
    outline.thrown = {"(Ljava/lang/Throwable;)V", {kind(CALLBACK_THROWN_EXCEPTION)}};
    const Outcome outcome = weave(builder, outline);
    EXPECT_EQ(outcome.code, "184# 0 184# 177 87 184# 177 87 184# 177 89 75 42 184# 191");
    ASSERT_GE(outcome.method.handlers.size(), 3u);
    const ReferenceHandler& inner = outcome.method.handlers[0];
    const ReferenceHandler& outer = outcome.method.handlers[1];
    EXPECT_EQ(inner.start, 3);
    EXPECT_EQ(inner.end, 4);
    EXPECT_EQ(inner.handler, 8);
    EXPECT_EQ(outer.start, 3);
    EXPECT_EQ(outer.handler, 13);
    for (size_t i = 2; i < outcome.method.handlers.size(); i++) {
        EXPECT_EQ(outcome.method.handlers[i].handler, 18);
        EXPECT_GE(outcome.method.handlers[i].start, 3) << "nothing that onEnter throws";
    }
}

TEST_F(WovenCode, constructorsAreEnteredBeforeOrBehindTheirSuperCall) {
    // new Built(new Built()) among the arguments of super(...), then a store to a field's object.
    const ProbeCallback enterThis = {"(Ljava/lang/Object;)V", {kind(CALLBACK_THIS)}};
    const ProbeCallback thrown = {"(Ljava/lang/Throwable;)V", {kind(CALLBACK_THROWN_EXCEPTION)}};
    const std::string super = "42 187# 89 187# 89 183# 183# 183# ";
    struct Row {
        ProbeCallback enter;
        std::string expected;
        int start; // of the handler's range
    };
    const Row rows[] = {
        {ENTER_VOID, "184# " + super + "177 89 76 43 184# 191", 3 + 18},
        {enterThis, super + "42 184# 177 89 76 43 184# 191", 18 + 4},
    };
    for (const Row& row : rows) {
        B builder(52);
        const int built = builder.classRef("Built");
        const int plain = builder.methodRef("Built", "<init>", "()V");
        const int nested = builder.methodRef("Built", "<init>", "(LBuilt;)V");
        const int outer = builder.methodRef("java/lang/Object", "<init>", "()V");
        const std::string make = B::u1(187) + B::u2(built) + B::u1(89);
        const auto call = [](int index) { return B::u1(183) + B::u2(index); };
        builder.addMethod(1, "<init>", "()V", 5, 1,
                          B::u1(42) + make + make + call(plain) + call(nested) + call(outer) +
                              B::u1(177));
        ProbeOutline outline;
        outline.enter = row.enter;
        outline.thrown = thrown;
        const Outcome outcome = weave(builder, outline, "<init>");
        EXPECT_EQ(outcome.code, row.expected);
        ASSERT_EQ(outcome.method.handlers.size(), 1u);
        EXPECT_EQ(outcome.method.handlers[0].start, row.start);
        EXPECT_EQ(outcome.method.handlers[0].end, outcome.method.handlers[0].handler);
    }
}

TEST_F(WovenCode, methodsAreWovenUpTo65535Bytes) {
    ProbeOutline outline;
    outline.enter = ENTER_VOID;
    outline.exit = ENTER_VOID;
    for (const int over : {0, 1}) {
        B builder(52);
        const size_t length = static_cast<size_t>(65535 - 6 + over);
        builder.addMethod(9, "m", "()V", 0, 0, std::string(length - 1, '\0') + B::u1(177));
        const Outcome outcome = weave(builder, outline);
        EXPECT_EQ(outcome.method.code.size(), over == 0 ? 65535u : length);
        EXPECT_EQ(outcome.method.maxStack, 0);
        EXPECT_EQ(outcome.counts.methods[METHOD_OUTCOME_TOO_LONG], over);
    }
}

TEST_F(WovenCode, aClassConstantRaisesAnOldVersion) {
    ProbeOutline outline;
    outline.enter = {"(Ljava/lang/Class;)V", {kind(CALLBACK_CLASS_REF)}};
    for (const int version : {48, 49, 52}) {
        B builder(version);
        builder.addMethod(9, "m", "()V", 0, 0, B::code({177}));
        const Outcome outcome = weave(builder, outline);
        EXPECT_EQ(outcome.code, "18# 184# 177");
        EXPECT_EQ(outcome.version, version == 48 ? 49 : version);
    }
}

TEST_F(WovenCode, whatAProbeIsWovenInto) {
    const auto instanceOf = [](const char* name) {
        ProbeOutline outline;
        outline.enter = ENTER_VOID;
        outline.instanceOf = name;
        return outline;
    };
    ProbeOutline throwing = instanceOf("");
    throwing.exceptions = {"java/io/IOException"};
    ProbeOutline ofInts = instanceOf("");
    ofInts.exit = {"()I", {}};
    ofInts.replaced = "I";
    ProbeOutline marking = instanceOf("");
    marking.probeClass = "com/vandrik/probes/builtin/J2EESupport$X";
    ProbeOutline elsewhere = instanceOf("");
    // The parameter names the type anyway.
    ProbeOutline typed = instanceOf("p/Q");
    typed.enter = {"(Lp/Q;)V", {kind(CALLBACK_THIS)}};
    elsewhere.methods = "other*";
    const std::string woven = "184# 177";
    const std::string tested = "42 193# 153.0.6 184# 177";
    // A type that the class may not see is not linked.
    const std::string byName = "42 18# 184# 153.0.6 184# 177";
    struct Row {
        const char* className;
        const char* superName;
        const char* interface;
        int flags;
        ProbeOutline probe;
        std::string expected; // the method as it was: "177"
    };
    const Row rows[] = {
        {"A", "java/lang/Object", "", 1, instanceOf(""), woven},
        {"A", "java/lang/Object", "", 1, elsewhere, "177"},
        {"A", "java/lang/Object", "", 1, instanceOf("I"), "177"},
        {"A", "java/lang/Object", "J", 1, instanceOf("java/io/Flushable"), tested},
        {"A", "java/lang/Object", "J", 1, instanceOf("java/sql/Driver"), byName},
        {"A", "java/lang/Object", "J", 1, instanceOf("java/util/logging/Handler"), byName},
        {"A", "java/lang/Object", "J", 1, typed, "42 193# 153.0.10 42 192# 184# 177"},
        {"A", "java/lang/Object", "I", 1, instanceOf("I"), woven},
        {"A", "I", "", 1, instanceOf("I"), woven},
        {"A", "B", "", 1, instanceOf("I"), byName},
        {"I", "B", "", 1, instanceOf("I"), woven},
        {"A", "I", "", 9, instanceOf("I"), "177"},
        {"A", "java/lang/Object", "", 1, throwing, "177"},
        {"A", "java/lang/Object", "", 1, ofInts, "177"},
        {"A", "java/lang/Object", "", 1, marking, woven},
        {"java/lang/VirtualThread", "java/lang/Thread", "", 1, instanceOf(""), "177"},
    };
    Logger::setSink([](const char* line) { message = line; });
    for (const Row& row : rows) {
        B builder(52, row.className, row.superName);
        if (row.interface[0] != '\0') {
            builder.addInterface(row.interface);
        }
        builder.addMethod(row.flags, "m", "()V", 0, 1, B::code({177}));
        EXPECT_EQ(weave(builder, row.probe).code, row.expected)
            << row.className << " extends " << row.superName << " for " << row.probe.instanceOf
            << row.probe.probeClass;
    }
    B builder(52, "a/A");
    builder.addMethod(1, "m", "()V", 0, 1, B::code({177}));
    weave(builder, throwing);
    EXPECT_NE(
        message.find("Warning: a.A.m not instrumented by probe p.Probe because probe callbacks "
                     "throw exceptions non-thrown in the method"),
        std::string::npos)
        << message;
    ParsedClass parsed(builder.build());
    RecordingHost host;
    const auto probe = makeProbe(marking);
    weaveClass(parsed.classFile, {probe.get()}, nullptr, &host);
    EXPECT_EQ(host.marked, "a/A.m()");
}

TEST_F(WovenCode, protectedClassesAreNamedInFull) {
    EXPECT_TRUE(Probes::isProbeApplicable("a.B", "*"));
    EXPECT_FALSE(Probes::isProbeApplicable("a.B", "b.*"));
    EXPECT_FALSE(Probes::isProbeApplicable("java.util.ArrayList", "*"));
    EXPECT_FALSE(Probes::isProbeApplicable("java.util.ArrayList", "java.*"));
    EXPECT_TRUE(Probes::isProbeApplicable("java.util.ArrayList", "java.util.A*"));
    EXPECT_TRUE(Probes::isProbeApplicable("java.io.File", "*"));
}
