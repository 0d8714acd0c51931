#include "support/ClassBuilder.h"
#include "support/ClassBundle.h"
#include "support/ParsedClass.h"
#include "support/ReferenceClass.h"
#include "support/RewriteClasses.h"

#include <gtest/gtest.h>
#include <map>

// Methods that no compiler would emit are rewritten and run in JVMs that verify everything. Each
// has a static method m(I)I; its result must be that of the original.

namespace {

using B = ClassBuilder;

const char DRIVER_SOURCE[] = R"(
import java.nio.file.*;
public class Driver {
    public static void main(String[] names) throws Exception {
        for (String name : names) {
            StringBuilder line = new StringBuilder(name);
            for (int i = 0; i < 3; i++) {
                com.vandrik.runtime.Callback.entries = 0;
                com.vandrik.runtime.Callback.exits = 0;
                com.vandrik.runtime.Callback.objects = 0;
                com.vandrik.runtime.Callback.catches = 0;
                Object result = Class.forName(name).getMethod("m", int.class).invoke(null, i);
                line.append(" ").append(result).append(":")
                    .append(com.vandrik.runtime.Callback.entries).append(",")
                    .append(com.vandrik.runtime.Callback.exits).append(",")
                    .append(com.vandrik.runtime.Callback.objects);
                int catches = com.vandrik.runtime.Callback.catches;
                line.append(catches == 0 ? "" : "+" + catches);
            }
            System.out.println(line);
        }
    }
}
)";

const char CALLBACK_SOURCE[] = R"(
package com.vandrik.runtime;
public class Callback {
    public static int entries, exits, objects, catches;
    public static void vdkMethodEntry(short low, short high) { entries++; }
    public static void vdkMethodExit(short low, short high) { exits++; }
    public static void vdkMethodCatch(short low, short high) { catches++; }
    public static int vdkInit(Object object, int frame) {
        objects += object == null ? 1000 : 1;
        return 7;
    }
}
)";

// Compiles driver and Callback, once for each JDK.
const std::string& driverDirectory(const std::string& jdk) {
    static std::map<std::string, std::string> directories;
    std::string& directory = directories[jdk];
    if (directory.empty()) {
        directory = compileJava(jdk, "Callback", CALLBACK_SOURCE);
        writeBinaryFile(directory + "/Driver.java", DRIVER_SOURCE);
        std::string output;
        EXPECT_EQ(runCommand(jdk + "/bin/javac -cp " + directory + " -d " + directory + " " +
                                 directory + "/Driver.java",
                             &output),
                  0)
            << output;
    }
    return directory;
}

// The lines of the driver, all classes in one JVM.
std::string run(const std::string& jdk, const std::map<std::string, std::string>& classes) {
    const std::string& directory = driverDirectory(jdk);
    std::string names;
    for (const auto& entry : classes) {
        writeBinaryFile(directory + "/" + entry.first + ".class", entry.second);
        names += " " + entry.first;
    }
    std::string output;
    runCommand(jdk + "/bin/java -Xverify:all -XX:-PrintWarnings -cp " + directory + " Driver" +
                   names,
               &output);
    return output;
}

std::string rewrite(const std::string& bytes, InstrumentationCounts* counts) {
    CountingIds ids;
    const std::string result =
        rewriteClass(bytes.data(), static_cast<int>(bytes.size()), true, true, &ids, counts);
    return result.empty() ? bytes : result;
}

// Every JDK prints these lines.
void expectLines(const std::map<std::string, std::string>& classes,
                 const std::vector<std::string>& lines) {
    for (const std::string& jdk : findJdks()) {
        const std::string output = run(jdk, classes);
        for (const std::string& line : lines) {
            EXPECT_NE(output.find(line), std::string::npos) << line << "\n"
                                                            << output.substr(0, 2500);
        }
    }
}

using Widening = QuietTest;

// iload_0; ifeq END; <fill>; iconst_5; ireturn; END: iconst_3; ireturn, with the branch exactly
// `distance` long. kind: 0 conditional, 1 goto (nop; nop; goto), 2 jsr, 3 conditional backwards.
std::string farBranch(const std::string& name, int major, int kind, int distance) {
    B builder(major, name);
    std::string code = B::code({26});
    B::Attributes attributes;
    const int target = 1 + distance;
    if (kind == 0) {
        code += B::u1(153) + B::u2(distance);
        code += std::string(static_cast<size_t>(target) - code.size() - 2, '\0');
        code += B::code({8, 172, 6, 172});
        if (major > 49) {
            attributes.push_back({"StackMapTable", B::u2(1) + B::u1(251) + B::u2(target)});
        }
    } else if (kind == 1) {
        // The fill is dead; old verifiers accept it.
        code = B::u1(0) + B::u1(167) + B::u2(distance);
        code += std::string(static_cast<size_t>(target) - code.size() - 2, '\0');
        code += B::code({8, 172, 6, 172});
    } else if (kind == 3) {
        // goto_w over: 5 iconst_3; ireturn; <fill>; iload_0; ifeq 5; iconst_5; ireturn
        const int branch = 5 + distance;
        code = B::u1(200) + B::u4(branch - 1) + B::code({6, 172});
        code += std::string(static_cast<size_t>(branch) - 1 - code.size(), '\0');
        code += B::code({26, 153}) + B::u2(-distance) + B::code({8, 172});
    } else {
        code = B::u1(0) + B::u1(168) + B::u2(distance) + B::code({26, 4, 96, 172});
        code += std::string(static_cast<size_t>(target) - code.size() - 2, '\0');
        code += B::code({8, 172});
        code += B::code({76, 169, 1}); // astore_1, ret 1
    }
    builder.addMethod(9, "m", "(I)I", 2, 2, code, {}, attributes);
    return builder.build();
}

} // namespace

TEST_F(Widening, farBranchesOfOldClassesAreWidenedAndRun) {
    std::map<std::string, std::string> classes;
    std::vector<std::string> lines;
    for (int kind = 0; kind < 4; kind++) {
        for (int over = -1; over <= 1; over++) {
            const bool widened = over == 1;
            // Between branch and target the exit code of one return is inserted, 9 bytes; the jsr
            // has two more returns behind it. Backwards a branch reaches a byte further.
            const int distance = 32767 - 9 + over - (kind == 2 ? 9 : 0) + (kind == 3 ? 1 : 0);
            const std::string name =
                "Far" + std::to_string(kind) + "Over" + std::to_string(over + 1);
            const std::string plain = farBranch(name, 48, kind, distance);
            InstrumentationCounts counts = {};
            const std::string rewritten = rewrite(plain, &counts);
            ASSERT_EQ(counts.methods[METHOD_OUTCOME_INSTRUMENTED], 1) << name;
            const ReferenceClass result(rewritten.data(), rewritten.size());
            const std::string& code = result.method("m")->code;
            const int expected[][2] = {{153, 154}, {167, 200}, {168, 201}, {153, 154}};
            const size_t branch = kind == 3 ? 9 + 9 + 5 + static_cast<size_t>(distance) : 9 + 1;
            EXPECT_EQ(static_cast<unsigned char>(code[branch]), expected[kind][widened]) << name;
            if (widened && kind == 0) {
                EXPECT_EQ(code.substr(11, 3), B::code({0, 11, 200}));
            }
            // The same class under another name, as it was.
            const std::string original = "Was" + name;
            classes[name] = rewritten;
            classes[original] = farBranch(original, 48, kind, distance);
            const std::string value = kind == 2 ? " 1" : " 3";
            lines.push_back(name + value + ":1,1,0");
            lines.push_back(original + value + ":0,0,0");
        }
    }
    expectLines(classes, lines);
}

TEST_F(Widening, farBranchesOfClassesWithFramesAreLeftAlone) {
    InstrumentationCounts counts = {};
    const std::string fits = rewrite(farBranch("Far", 52, 0, 32767 - 9), &counts);
    EXPECT_EQ(counts.methods[METHOD_OUTCOME_INSTRUMENTED], 1);
    const std::string plain = farBranch("Far", 52, 0, 32767 - 8);
    EXPECT_EQ(rewrite(plain, &counts), plain);
    EXPECT_EQ(counts.methods[METHOD_OUTCOME_BRANCH_OVERFLOW], 1);
    expectLines({{"Far", fits}}, {"Far 3:1,1,0 5:1,1,0"});
}

TEST_F(Widening, methodsAtTheLimitsOfTheirLengthRun) {
    struct Row {
        int length; // with all calls in it
        bool arrays;
        const char* expected; // entries, exits, objects
    };
    // Above 8000 bytes the JVM no longer compiles; above 65535 it takes no class.
    const Row rows[] = {
        {7999, false, ":1,1,0"},  {8000, false, ":1,1,0"},  {8001, false, ":0,0,0"},
        {7999, true, ":1,1,1"},   {8000, true, ":1,1,1"},   {8001, true, ":1,1,0"},
        {65534, false, ":1,1,0"}, {65535, false, ":1,1,0"}, {65536, false, ":0,0,0"},
        {65534, true, ":1,1,1"},  {65535, true, ":1,1,1"},  {65536, true, ":1,1,0"},
    };
    std::map<std::string, std::string> classes;
    std::vector<std::string> lines;
    for (const Row& row : rows) {
        // newarray int; pop: 12 bytes for the call, 5 for the variable
        const std::string array = row.arrays ? B::code({4, 188, 10, 87}) : "";
        const int length = row.length - 18 - (row.arrays ? 17 : 0);
        const std::string name =
            std::string(row.arrays ? "Array" : "Plain") + std::to_string(row.length);
        B builder(52, name);
        builder.addMethod(9, "m", "(I)I", 1, 1,
                          array +
                              std::string(static_cast<size_t>(length) - array.size() - 2, '\0') +
                              B::code({26, 172}));
        InstrumentationCounts counts = {};
        classes[name] = rewrite(builder.build(), &counts);
        lines.push_back(name + " 0" + row.expected + " 1" + row.expected);
    }
    expectLines(classes, lines);
}

TEST_F(Widening, oddAllocationPatternsStayValidAndCounted) {
    struct Row {
        const char* name;
        std::string code;
        B::Attributes frames; // for version 52
        const char* expected; // counts of objects in the calls m(0), m(1)
    };
    const auto build = [](const char* name, int major, const std::string& code,
                          const B::Attributes& attributes) {
        B builder(major, name);
        // Indices that the codes use: taken below from the same calls in the same order.
        builder.classRef("java/lang/Object");
        builder.methodRef("java/lang/Object", "<init>", "()V");
        builder.classRef("java/lang/Integer");
        builder.methodRef("java/lang/Integer", "<init>", "(I)V");
        builder.addMethod(9, "m", "(I)I", 8, 4, code, {}, attributes);
        return builder.build();
    };
    B probe(52, "XXXX");
    const int object = probe.classRef("java/lang/Object");
    const int objectInit = probe.methodRef("java/lang/Object", "<init>", "()V");
    const int integer = probe.classRef("java/lang/Integer");
    const int integerInit = probe.methodRef("java/lang/Integer", "<init>", "(I)V");
    const auto op = [](int opcode, int index) { return B::u1(opcode) + B::u2(index); };
    const std::string uninit0 = B::u1(8) + B::u2(0);
    const Row rows[] = {
        // new, no dup, constructor, nothing kept
        {"Nod0", op(187, object) + op(183, objectInit) + B::code({26, 172}), {}, ":1,1,1"},
        // new, dup, constructor, pop
        {"Dup0",
         op(187, object) + B::u1(89) + op(183, objectInit) + B::code({87, 26, 172}),
         {},
         ":1,1,1"},
        // new without dup around a condition: 0 new, 3 iload_0, 4 ifeq 11, 7 iconst_1, 8 goto 12,
        // 11 iconst_2, 12 invokespecial, 15 iload_0, 16 ireturn
        {"Tern",
         op(187, integer) + B::code({26, 153, 0, 7, 4, 167, 0, 4, 5}) + op(183, integerInit) +
             B::code({26, 172}),
         {{"StackMapTable", B::u2(2) + B::u1(64 + 11) + uninit0 + B::u1(255) + B::u2(0) + B::u2(1) +
                                B::u1(1) + B::u2(2) + uninit0 + B::u1(1)}},
         ":1,1,1"},
        // the same with a dup
        {"Dupt",
         op(187, integer) + B::code({89, 26, 153, 0, 7, 4, 167, 0, 4, 5}) + op(183, integerInit) +
             B::code({87, 26, 172}),
         {{"StackMapTable", B::u2(2) + B::u1(255) + B::u2(12) + B::u2(1) + B::u1(1) + B::u2(2) +
                                uninit0 + uninit0 + B::u1(255) + B::u2(0) + B::u2(1) + B::u1(1) +
                                B::u2(3) + uninit0 + uninit0 + B::u1(1)}},
         ":1,1,1"},
        // iload_0, new, dup_x1, swap, constructor, pop: the copies go below the argument
        {"Swap",
         B::u1(26) + op(187, integer) + B::code({90, 95}) + op(183, integerInit) +
             B::code({87, 26, 172}),
         {},
         ":1,1,1"},
        // new, dup_x1 without a swap: the object is not on top after the constructor
        {"Dx1x",
         B::u1(26) + op(187, object) + B::u1(90) + op(183, objectInit) + B::code({87, 87, 26, 172}),
         {},
         ":1,1,0"},
        // new, astore, aload, constructor: nothing is left on the stack
        {"Stor",
         op(187, object) + B::code({76, 43}) + op(183, objectInit) + B::code({26, 172}),
         {},
         ":1,1,0"},
        // new, dup, astore_1, astore_2, aload_1, constructor: both copies left the stack
        {"Sto2",
         op(187, object) + B::code({89, 76, 77, 43}) + op(183, objectInit) + B::code({26, 172}),
         {},
         ":1,1,0"},
        // new, dup, pop, constructor: no copy is left
        {"Dpop",
         op(187, object) + B::code({89, 87}) + op(183, objectInit) + B::code({26, 172}),
         {},
         ":1,1,0"},
        // arrays of every kind
        {"Arra",
         B::code({4, 188, 10, 87, 4}) + op(189, object) + B::code({87, 26, 172}),
         {},
         ":1,1,2"},
    };
    for (int major : {48, 52}) {
        std::map<std::string, std::string> classes;
        std::vector<std::string> lines;
        InstrumentationCounts counts = {};
        for (const Row& row : rows) {
            const std::string plain =
                build(row.name, major, row.code, major > 49 ? row.frames : B::Attributes());
            classes[row.name] = rewrite(plain, &counts);
            lines.push_back(std::string(row.name) + " 0" + row.expected + " 1" + row.expected);
        }
        expectLines(classes, lines);
    }
}

// A handler may begin with a branch, with an object under construction, be covered by itself, or be
// reached by a branch too: its call runs on every way there, once.
TEST_F(Widening, handlersOfAnyShapeRun) {
    B probe(52, "XXXX");
    const int throwable = probe.classRef("java/lang/Throwable");
    const int object = probe.classRef("java/lang/Object");
    const int objectInit = probe.methodRef("java/lang/Object", "<init>", "()V");
    // iload_0; ifeq 6; aconst_null; athrow; then what follows at 6 and at the handler
    const std::string head = B::code({26, 153, 0, 5, 1, 191});
    const std::string caught = B::u1(7) + B::u2(throwable);
    const std::string at6 = B::u1(6);
    const std::string ends = B::code({4, 172}); // iconst_1; ireturn
    struct Row {
        const char* name;
        std::string code;
        std::vector<B::Handler> handlers;
        std::string frames;
        const char* expected;
    };
    const Row rows[] = {
        {"Bran",
         head + ends + B::code({167, 0, 3, 87, 5, 172}),
         {{0, 6, 8, 0}},
         B::u2(3) + at6 + B::u1(65) + caught + B::u1(66) + caught,
         " 1:1,1,0 2:1,1,0+1 2:1,1,0+1"},
        {"Newf",
         head + ends + B::u1(187) + B::u2(object) + B::code({26, 153, 0, 3, 183}) +
             B::u2(objectInit) + B::code({87, 5, 172}),
         {{0, 6, 8, 0}},
         B::u2(3) + at6 + B::u1(65) + caught + B::u1(255) + B::u2(6) + B::u2(1) + B::u1(1) +
             B::u2(2) + caught + B::u1(8) + B::u2(8),
         " 1:1,1,0 2:1,1,1+1 2:1,1,1+1"},
        {"Ownr",
         head + ends + B::code({76, 5, 172}),
         {{0, 6, 8, 0}, {8, 9, 8, 0}},
         B::u2(2) + at6 + B::u1(65) + caught,
         " 1:1,1,0 2:1,1,0+1 2:1,1,0+1"},
        {"Goto",
         head + B::code({1, 167, 0, 3, 87, 5, 172}),
         {{0, 6, 10, 0}},
         B::u2(2) + at6 + B::u1(67) + caught,
         " 2:1,1,0+1 2:1,1,0+1 2:1,1,0+1"},
    };
    for (int major : {48, 52}) {
        std::map<std::string, std::string> classes;
        std::vector<std::string> lines;
        for (const Row& row : rows) {
            B builder(major, row.name);
            builder.classRef("java/lang/Throwable");
            builder.classRef("java/lang/Object");
            builder.methodRef("java/lang/Object", "<init>", "()V");
            builder.addMethod(9, "m", "(I)I", 3, 2, row.code, row.handlers,
                              major > 49 ? B::Attributes{{"StackMapTable", row.frames}}
                                         : B::Attributes());
            InstrumentationCounts counts = {};
            classes[row.name] = rewrite(builder.build(), &counts);
            lines.push_back(row.name + std::string(row.expected));
        }
        expectLines(classes, lines);
    }
}

// 200 branches, each with a frame, behind the making of an array.
TEST_F(Widening, allocationsStayUnrecordedWhereFramesWouldTakeTooMuchMemory) {
    static const struct {
        int maxLocals;
        MethodOutcome outcome;
    } cases[] = {{1, METHOD_OUTCOME_INSTRUMENTED},
                 {20971, METHOD_OUTCOME_INSTRUMENTED},
                 {20972, METHOD_OUTCOME_WITHOUT_ALLOCATIONS},
                 {32766, METHOD_OUTCOME_WITHOUT_ALLOCATIONS}};
    for (const auto& each : cases) {
        B builder(52, "Frames");
        std::string code = B::code({4, 188, 10, 87}); // iconst_1, newarray int, pop
        std::string frames = B::u2(200);
        for (int i = 0; i < 200; i++) {
            code += B::code({26, 153, 0, 3}); // iload_0, ifeq behind it
            frames += B::u1(i == 0 ? 8 : 3);
        }
        code += B::code({177});
        builder.addMethod(9, "m", "(I)V", 2, each.maxLocals, code, {}, {{"StackMapTable", frames}});
        InstrumentationCounts counts = {};
        rewrite(builder.build(), &counts);
        EXPECT_EQ(1, counts.methods[each.outcome]) << each.maxLocals;
    }
}
