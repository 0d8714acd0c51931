// Where the options of a JVM hide, and what they mean for the agent.
#include "core/entry/JvmArguments.h"

#include "DirectoryTest.h"

#include <cstdlib>
#include <fstream>
#include <gtest/gtest.h>
#include <string>
#include <vector>

namespace {

class JvmArgumentsTest : public DirectoryTest {
protected:
    ~JvmArgumentsTest() override {
        for (const char* name : {"JAVA_TOOL_OPTIONS", "JDK_JAVA_OPTIONS", "_JAVA_OPTIONS"}) {
            unsetenv(name);
        }
    }
    std::string write(const std::string& name, const std::string& content) {
        const std::string path = directory + "/" + name;
        std::ofstream(path) << content;
        return path;
    }
};

JvmArguments collect(const std::vector<std::string>& arguments) {
    ZVectorSafe<ZString> line;
    for (const std::string& argument : arguments) {
        line.push(argument.c_str());
    }
    return JvmArguments(line);
}

} // namespace

TEST_F(JvmArgumentsTest, dumpOptionsAreSeenOnTheCommandLine) {
    for (const char* option :
         {"-XX:AOTCacheOutput=x.aot", "-XX:AOTMode=record", "-XX:AOTMode=create",
          "-XX:ArchiveClassesAtExit=x.jsa", "-Xshare:dump", "-J-Xshare:dump"}) {
        EXPECT_TRUE(collect({"java", option, "Main"}).isArchiveDump()) << option;
    }
    for (const char* option : {"-XX:AOTMode=on", "-Xshare:on", "-Xshare:auto"}) {
        EXPECT_FALSE(collect({"java", option, "Main"}).isArchiveDump()) << option;
    }
}

TEST_F(JvmArgumentsTest, argumentsOfTheApplicationAreNotTheJvms) {
    EXPECT_FALSE(collect({"java", "Main", "-Xshare:dump"}).isArchiveDump());
    EXPECT_FALSE(collect({"java", "-jar", "a.jar", "-XX:AOTCacheOutput=x"}).isArchiveDump());
    EXPECT_FALSE(collect({"java", "-cp", "-Xshare:dump", "Main"}).isArchiveDump());
}

TEST_F(JvmArgumentsTest, applicationArchivesAreSeen) {
    for (const char* option : {"-XX:SharedArchiveFile=a.jsa", "-XX:AOTCache=a", "-XX:AOTMode=on",
                               "-XX:AOTMode=auto", "-XX:+AutoCreateSharedArchive"}) {
        EXPECT_TRUE(collect({"java", option, "Main"}).mayUseApplicationArchive()) << option;
    }
    EXPECT_FALSE(collect({"java", "-Xmx1g", "Main"}).mayUseApplicationArchive());
}

TEST_F(JvmArgumentsTest, everyOptionVariableCounts) {
    for (const char* name : {"JAVA_TOOL_OPTIONS", "JDK_JAVA_OPTIONS", "_JAVA_OPTIONS"}) {
        setenv(name, "-Xmx1g  '-XX:AOTCache=/a b.aot'\t-Dx", 1);
        const JvmArguments arguments = collect({"java", "Main"});
        EXPECT_TRUE(arguments.mayUseApplicationArchive()) << name;
        ASSERT_EQ(3, arguments.getWords().getSize()) << name;
        EXPECT_STREQ("-XX:AOTCache=/a b.aot", arguments.getWords()[1].c_str());
        unsetenv(name);
    }
}

TEST_F(JvmArgumentsTest, argumentFilesAreReadWithQuotesAndComments) {
    const std::string file = write("args", "-Xmx1g # -Xshare:dump\n\"-Dname=a b\"\n  -Xint");
    const JvmArguments arguments = collect({"java", "@" + file, "Main"});
    EXPECT_FALSE(arguments.isArchiveDump());
    ASSERT_EQ(4, arguments.getWords().getSize());
    EXPECT_STREQ("-Dname=a b", arguments.getWords()[2].c_str());
    EXPECT_STREQ("-Xint", arguments.getWords()[3].c_str());
}

TEST_F(JvmArgumentsTest, flagsFilesNameTheirFlagsBare) {
    const std::string file = write("flags", "+UseSerialGC\nArchiveClassesAtExit=x.jsa\n");
    EXPECT_TRUE(collect({"java", "-XX:Flags=" + file, "Main"}).isArchiveDump());
}

TEST_F(JvmArgumentsTest, optionsFilesMayHideBehindAVariable) {
    const std::string file = write("options", "-XX:SharedArchiveFile=x.jsa\n");
    setenv("JAVA_TOOL_OPTIONS", ("-XX:VMOptionsFile=" + file).c_str(), 1);
    EXPECT_TRUE(collect({"java", "Main"}).mayUseApplicationArchive());
}

TEST_F(JvmArgumentsTest, circlesAndMissingFilesEnd) {
    const std::string path = directory + "/circle";
    write("circle", "@" + path + " -Xint @" + directory + "/missing");
    const JvmArguments arguments = collect({"java", "@" + path, "Main"});
    EXPECT_TRUE(arguments.containsPrefix("-Xint"));
}
