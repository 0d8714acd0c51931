#include "client/attach/AgentOptions.h"

#include "Expect.h"
#include "TempDir.h"
#include "client/attach/AgentLibraryFile.h"

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

using namespace vdk;

TEST(AgentOptions, defaultsGiveWayToWhatTheUserSays) {
    AgentOptionChoices run;
    run.tmpDir = "/run/vdk-1";
    AgentOptionChoices attach = run;
    attach.attach = true;
    attach.workingDir = "/home/me";
    AgentOptionChoices all = run;
    all.remote = all.exceptions = all.verbose = true;
    AgentOptionChoices generations = attach;
    generations.generations = true;
    static const struct {
        const AgentOptionChoices& choices;
        std::vector<std::string> arguments;
        const char* expected;
    } cases[] = {
        {run, {}, "onlylocal,quiet,noexceptionevents,tmpdir=/run/vdk-1"},
        {run,
         {"sampling", "port=5"},
         "onlylocal,quiet,noexceptionevents,tmpdir=/run/vdk-1,sampling,port=5"},
        {run, {"tmpdir=/t,quiet"}, "onlylocal,noexceptionevents,tmpdir=/t,quiet"},
        {run, {"listen=10.0.0.1:5"}, "quiet,noexceptionevents,tmpdir=/run/vdk-1,listen=10.0.0.1:5"},
        {run,
         {"onlylocal", "noexceptionevents"},
         "quiet,tmpdir=/run/vdk-1,onlylocal,noexceptionevents"},
        {all, {"sampling"}, "tmpdir=/run/vdk-1,sampling"},
        {attach, {}, "onlylocal,quiet,nostartgeneration,tmpdir=/run/vdk-1"},
        {attach,
         {"dir=snaps,filters=/abs"},
         "onlylocal,quiet,nostartgeneration,tmpdir=/run/vdk-1,dir=/home/me/snaps,filters=/abs"},
        {generations, {}, "onlylocal,quiet,tmpdir=/run/vdk-1"},
        {run, {",,sampling,"}, "onlylocal,quiet,noexceptionevents,tmpdir=/run/vdk-1,sampling"},
    };
    for (const auto& c : cases) {
        EXPECT_EQ(composeAgentOptions(c.arguments, c.choices), c.expected);
    }
    EXPECT_EQ(wordOf([&] { composeAgentOptions({"--port=5"}, run); }), "usage");
}

TEST(AgentOptions, valuesWithSeparatorsAreQuoted) {
    EXPECT_EQ(quoteOptionValue("/plain/path"), "/plain/path");
    EXPECT_EQ(quoteOptionValue("a,b c"), "VDKQUOTED612c622063");
    EXPECT_EQ(quoteOptionValue("VDKQUOTEDx"), "VDKQUOTED56444b51554f54454478");
}

TEST(AgentOptions, everyResultOfTheAgentHasAnExplanation) {
    for (int code = 1; code <= 11; code++) {
        EXPECT_FALSE(explainAgentResult(code).message.empty()) << code;
    }
    EXPECT_NE(explainAgentResult(77).message.find("77"), std::string::npos);
}

TEST(PrivateDirectory, isMadeForTheUserAlone) {
    TempDir dir;
    std::string path = makePrivateDirectory(dir.path, getuid());
    struct stat info;
    ASSERT_EQ(stat(path.c_str(), &info), 0);
    EXPECT_EQ(info.st_mode & 07777, 0700u);
    EXPECT_EQ(makePrivateDirectory(dir.path, getuid()), path); // and used again
}

TEST(PrivateDirectory, isRefusedWhenOthersCouldWriteOrItIsALink) {
    TempDir dir;
    std::string path = dir.file("vdk-" + std::to_string(getuid()));
    ASSERT_EQ(mkdir(path.c_str(), 0700), 0);
    ASSERT_EQ(chmod(path.c_str(), 0777), 0);
    EXPECT_EQ(wordOf([&] { makePrivateDirectory(dir.path, getuid()); }), "tmpdir");
    ASSERT_EQ(rmdir(path.c_str()), 0);
    ASSERT_EQ(symlink("/tmp", path.c_str()), 0);
    EXPECT_EQ(wordOf([&] { makePrivateDirectory(dir.path, getuid()); }), "tmpdir");
    ASSERT_EQ(unlink(path.c_str()), 0);
    EXPECT_EQ(wordOf([&] { makePrivateDirectory(dir.path, getuid() + 1); }), "tmpdir");
    EXPECT_EQ(wordOf([&] { makePrivateDirectory(dir.file("missing"), getuid()); }), "tmpdir");
}
