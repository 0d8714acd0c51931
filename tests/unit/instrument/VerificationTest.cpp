#include <gtest/gtest.h>

#include <cstdio>
#include <filesystem>
#include <set>

#include "support/ClassBundle.h"
#include "support/RewriteClasses.h"

// Every class of a JDK is rewritten and put in place of the original; the JVM, verifying all of
// them, links each one.

namespace fs = std::filesystem;

namespace {

const char CALLBACK_SOURCE[] =
    "package com.vandrik.runtime;\n"
    "public class Callback {\n"
    "    public static void vdkMethodEntry(short low, short high) { }\n"
    "    public static void vdkMethodExit(short low, short high) { }\n"
    "    public static int vdkInit(Object object, int frame) { return -1; }\n"
    "}\n";

const char VERIFYING_FLAGS[] = " -XX:+UnlockDiagnosticVMOptions -XX:+BytecodeVerificationLocal "
                               "-XX:+BytecodeVerificationRemote -Xshare:off";

void printCounts(const char* label, size_t classes, int rewritten,
                 const InstrumentationCounts& counts) {
    printf("%s: %zu classes, %d rewritten; methods:", label, classes, rewritten);
    for (int i = 0; i < METHOD_OUTCOME_COUNT; i++) {
        printf(" %s %ld,", methodOutcomeText(static_cast<MethodOutcome>(i)), counts.methods[i]);
    }
    printf(" allocations skipped %ld\n", counts.skippedAllocations);
}

// Rewrites a JDK's classes into <directory>/<module>/...; gives the modules that have any.
std::set<std::string> rewriteModules(const std::string& jdk, const std::string& directory) {
    const ClassBundle bundle(extractClasses(jdk, {"jrt"}));
    std::set<std::string> modules;
    InstrumentationCounts counts = {};
    CountingIds ids;
    int rewritten = 0;
    for (const NamedClass& entry : bundle.classes()) {
        const std::string bytes =
            rewriteClass(entry.bytes, entry.length, true, true, &ids, &counts);
        if (bytes.empty()) {
            continue;
        }
        // /modules/<module>/<path>
        const std::string path = entry.name.substr(9);
        const fs::path file = fs::path(directory) / path;
        fs::create_directories(file.parent_path());
        writeBinaryFile(file.string(), bytes);
        modules.insert(path.substr(0, path.find('/')));
        rewritten++;
    }
    printCounts(jdk.c_str(), bundle.classes().size(), rewritten, counts);
    EXPECT_GT(rewritten, 10000);
    return modules;
}

void verify(const std::string& release) {
    const std::string jdk = findJdk(release);
    if (jdk.empty()) {
        GTEST_SKIP() << "no JDK " << release;
    }
    const std::string directory = makeTemporaryDirectory();
    const std::set<std::string> modules = rewriteModules(jdk, directory);
    // Part of java.base, so that the first classes of all can call it.
    fs::copy(compileJava(jdk, "Callback", CALLBACK_SOURCE) + "/com", directory + "/java.base/com",
             fs::copy_options::recursive);
    std::string command = jdk + "/bin/java" + VERIFYING_FLAGS + " --add-modules ALL-SYSTEM";
    for (const std::string& module : modules) {
        command += " --patch-module " + module + "=" + directory + "/" + module;
    }
    const std::string classes =
        compileJava(jdk, "LinkClasses", readBinaryFile(VDK_TEST_SOURCES "/LinkClasses.java"));
    std::string output;
    EXPECT_EQ(runCommand(command + " -cp " + classes + " LinkClasses", &output), 0) << output;
    printf("%s", output.substr(0, 4000).c_str());
    EXPECT_NE(output.find("linked "), std::string::npos);
    EXPECT_NE(output.find(" refused 0 "), std::string::npos);
}

// The rewritten class with the first byte of the inserted entry code replaced by a pop from an
// empty stack.
std::string breakClass(const NamedClass& entry) {
    CountingIds ids;
    std::string bytes = rewriteClass(entry.bytes, entry.length, false, true, &ids, nullptr);
    DataInput input(reinterpret_cast<const unsigned char*>(bytes.data()),
                    static_cast<int>(bytes.size()));
    ClassFile classFile(input);
    for (int i = 0; i < classFile.getMethods().getSize(); i++) {
        CodeAttribute* const code = classFile.getMethods()[i]->getCodeAttribute();
        if (code != nullptr && code->getCodeLength() > 20) {
            std::string broken(reinterpret_cast<const char*>(code->getCode()),
                               static_cast<size_t>(code->getCodeLength()));
            broken[0] = 87;
            code->setCode(reinterpret_cast<const unsigned char*>(broken.data()),
                          static_cast<int>(broken.size()));
        }
    }
    ZVector<unsigned char> output(64);
    DataOutput out(output);
    classFile.writeClass(out);
    return std::string(reinterpret_cast<const char*>(output.data()),
                       static_cast<size_t>(output.getSize()));
}

} // namespace

// The other tests would prove nothing if the JVM did not verify the classes of its own modules.
TEST(Verification, brokenClassOfTheJdkIsRefused) {
    const std::string jdk = findJdk("25");
    if (jdk.empty()) {
        GTEST_SKIP() << "no JDK 25";
    }
    const ClassBundle bundle(extractClasses(jdk, {"jrt:java.base"}));
    const std::string name = "java/util/zip/Adler32";
    const std::string directory = makeTemporaryDirectory();
    for (const NamedClass& entry : bundle.classes()) {
        if (entry.name == "/modules/java.base/" + name + ".class") {
            fs::create_directories(directory + "/java/util/zip");
            writeBinaryFile(directory + "/" + name + ".class", breakClass(entry));
        }
    }
    writeBinaryFile(directory + "/names", "java.util.zip.Adler32\n");
    const std::string classes =
        compileJava(jdk, "LinkClasses", readBinaryFile(VDK_TEST_SOURCES "/LinkClasses.java"));
    std::string output;
    runCommand(jdk + "/bin/java" + VERIFYING_FLAGS + " --patch-module java.base=" + directory +
                   " -cp " + classes + " LinkClasses " + directory + "/names",
               &output);
    EXPECT_NE(output.find("REFUSED java.util.zip.Adler32"), std::string::npos) << output;
}

TEST(Verification, rewrittenClassesOf17Link) {
    verify("17");
}

TEST(Verification, rewrittenClassesOf25Link) {
    verify("25");
}
