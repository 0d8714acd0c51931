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
    all.remote = all.exceptions = all.verbose = all.requireAgent = all.oomDump = true;
    AgentOptionChoices generations = attach;
    generations.generations = true;
    AgentOptionChoices silent = run;
    silent.noSnapshot = true;
    AgentOptionChoices named = run;
    named.exitSnapshot = "/w/a b.snapshot";
#define RUN_TAIL "disableoomedumper,optional,tellsnapshot,"
    static const struct {
        const AgentOptionChoices& choices;
        std::vector<std::string> arguments;
        const char* expected;
    } cases[] = {
        {run, {}, "onlylocal,quiet,noexceptionevents," RUN_TAIL "tmpdir=/run/vdk-1"},
        {run,
         {"sampling", "port=5"},
         "onlylocal,quiet,noexceptionevents," RUN_TAIL "tmpdir=/run/vdk-1,sampling,port=5"},
        {run, {"tmpdir=/t,quiet"}, "onlylocal,noexceptionevents," RUN_TAIL "tmpdir=/t,quiet"},
        {run,
         {"listen=10.0.0.1:5"},
         "quiet,noexceptionevents," RUN_TAIL "tmpdir=/run/vdk-1,listen=10.0.0.1:5"},
        {run,
         {"onlylocal", "noexceptionevents"},
         "quiet," RUN_TAIL "tmpdir=/run/vdk-1,onlylocal,noexceptionevents"},
        {all, {"sampling"}, "tellsnapshot,tmpdir=/run/vdk-1,sampling"},
        {silent,
         {},
         "onlylocal,quiet,noexceptionevents,disableoomedumper,optional,noexitsnapshot,"
         "tmpdir=/run/vdk-1"},
        {named,
         {},
         "onlylocal,quiet,noexceptionevents," RUN_TAIL
         "exitsnapshot=VDKQUOTED2f772f6120622e736e617073686f74,tmpdir=/run/vdk-1"},
        {attach, {}, "onlylocal,quiet,nostartgeneration,disableoomedumper,tmpdir=/run/vdk-1"},
        {attach,
         {"dir=snaps,filters=/abs"},
         "onlylocal,quiet,nostartgeneration,disableoomedumper,tmpdir=/run/vdk-1,"
         "dir=/home/me/snaps,filters=/abs"},
        {generations, {}, "onlylocal,quiet,disableoomedumper,tmpdir=/run/vdk-1"},
        {run,
         {",,sampling,"},
         "onlylocal,quiet,noexceptionevents," RUN_TAIL "tmpdir=/run/vdk-1,sampling"},
    };
    for (const auto& c : cases) {
        std::string options = composeAgentOptions(c.arguments, c.choices);
        EXPECT_EQ(options, c.expected);
        if (options.find("filters=") == std::string::npos) {
            EXPECT_EQ(wordOf([&] { checkAgentOptions(options); }), "") << options;
        }
    }
    EXPECT_EQ(wordOf([&] { composeAgentOptions({"--port=5"}, run); }), "usage");
}

TEST(AgentOptions, whatTheAgentWouldRefuseOrIgnoreIsKnownAhead) {
    static const struct {
        const char* options;
        const char* word;
    } cases[] = {
        {"sampling,port=10005", ""},
        {"samplin", "agent.options"},
        {"help", "agent.options"},
        {"sampling,tracing", "agent.options"},
        {"tracing,filters=/nonexistent/f", "input.open"},
        {"triggers=/nonexistent/t", "input.open"},
    };
    for (const auto& c : cases) {
        EXPECT_EQ(wordOf([&] { checkAgentOptions(c.options); }), c.word) << c.options;
    }
    EXPECT_EQ(uselessAgentOptions("sampling,monitors,alloceach=10,builtinprobes=none"),
              (std::vector<std::string>{"monitors", "alloceach=10"}));
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
