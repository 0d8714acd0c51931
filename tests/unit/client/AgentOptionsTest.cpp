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
    AgentOptionChoices allUsers = run;
    allUsers.allUsers = true;
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
        {run, {}, "onlylocal,onlyuser,quiet,noexceptionevents," RUN_TAIL "tmpdir=/run/vdk-1"},
        {run,
         {"sampling", "port=5"},
         "onlylocal,onlyuser,quiet,noexceptionevents," RUN_TAIL
         "tmpdir=/run/vdk-1,sampling,port=5"},
        {run,
         {"tmpdir=/t,quiet"},
         "onlylocal,onlyuser,noexceptionevents," RUN_TAIL "tmpdir=/t,quiet"},
        {run,
         {"listen=10.0.0.1:5"},
         "onlyuser,quiet,noexceptionevents," RUN_TAIL "tmpdir=/run/vdk-1,listen=10.0.0.1:5"},
        {run,
         {"onlylocal", "noexceptionevents"},
         "onlyuser,quiet," RUN_TAIL "tmpdir=/run/vdk-1,onlylocal,noexceptionevents"},
        {all, {"sampling"}, "tellsnapshot,tmpdir=/run/vdk-1,sampling"},
        {silent,
         {},
         "onlylocal,onlyuser,quiet,noexceptionevents,disableoomedumper,optional,noexitsnapshot,"
         "tmpdir=/run/vdk-1"},
        {named,
         {},
         "onlylocal,onlyuser,quiet,noexceptionevents," RUN_TAIL
         "exitsnapshot=VDKQUOTED2f772f6120622e736e617073686f74,tmpdir=/run/vdk-1"},
        {attach,
         {},
         "onlylocal,onlyuser,quiet,nostartgeneration,disableoomedumper,tmpdir=/run/vdk-1"},
        {attach,
         {"dir=snaps,filters=/abs"},
         "onlylocal,onlyuser,quiet,nostartgeneration,disableoomedumper,tmpdir=/run/vdk-1,"
         "dir=/home/me/snaps,filters=/abs"},
        {generations, {}, "onlylocal,onlyuser,quiet,disableoomedumper,tmpdir=/run/vdk-1"},
        {run,
         {",,sampling,"},
         "onlylocal,onlyuser,quiet,noexceptionevents," RUN_TAIL "tmpdir=/run/vdk-1,sampling"},
        {allUsers, {}, "onlylocal,quiet,noexceptionevents," RUN_TAIL "tmpdir=/run/vdk-1"},
    };
    for (const auto& c : cases) {
        std::string options = composeAgentOptions(c.arguments, c.choices);
        EXPECT_EQ(options, c.expected);
        if (options.find("filters=") == std::string::npos) {
            EXPECT_EQ(wordOf([&] { checkAgentOptions({options}, false); }), "") << options;
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
        EXPECT_EQ(wordOf([&] { checkAgentOptions({c.options}, false); }), c.word) << c.options;
    }
    EXPECT_EQ(uselessAgentOptions("sampling,monitors,alloceach=10,builtinprobes=none"),
              (std::vector<std::string>{"alloceach=10"}));
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

TEST(AgentOptions, whatTheAgentWouldRefuseIsRefusedBeforeTheJvmIsTouched) {
    static const struct {
        const char* options;
        const char* reason; // nullptr: accepted
    } cases[] = {
        {"sampling,port=10005", nullptr},
        {"filters=/only/in/the/target,tracing", nullptr},
        {"optionsfile=/only/in/the/target", nullptr},
        {"smapling", "smapling"},
        {"port=0", "'port' value is invalid"},
        {"sampling,tracing", "cannot be used in combination"},
        {"help", "help"},
    };
    for (const auto& c : cases) {
        std::string message;
        std::string word = wordOf([&] { checkAgentOptions({c.options}, true); }, &message);
        EXPECT_EQ(word, c.reason ? "agent.options" : "") << c.options;
        EXPECT_NE(message.find(c.reason ? c.reason : ""), std::string::npos) << message;
    }
    EXPECT_EQ(givenOption({"sampling", "tmpdir=/a,tmpdir=VDKQUOTED2f62"}, "tmpdir="), "/b");
}

TEST(PrivateDirectory, isTheUsersOwnWhateverStandsInItsPlace) {
    TempDir dir;
    setenv("XDG_RUNTIME_DIR", dir.path.c_str(), 1);
    std::string usual = dir.file("vdk-" + std::to_string(getuid()));
    EXPECT_EQ(ownPrivateDirectory(), usual);
    EXPECT_EQ(ownPrivateDirectory(), usual); // and used again
    auto expectAnother = [&](const char* what) {
        std::string path = ownPrivateDirectory();
        struct stat info;
        ASSERT_EQ(lstat(path.c_str(), &info), 0) << what;
        EXPECT_NE(path, usual) << what;
        EXPECT_TRUE(S_ISDIR(info.st_mode)) << what;
        EXPECT_EQ(info.st_mode & 07777, 0700u) << what;
    };
    ASSERT_EQ(chmod(usual.c_str(), 0777), 0);
    expectAnother("others may write");
    ASSERT_EQ(rmdir(usual.c_str()), 0);
    ASSERT_EQ(symlink("/tmp", usual.c_str()), 0);
    expectAnother("a link");
    ASSERT_EQ(unlink(usual.c_str()), 0);
    ASSERT_EQ(mkdir(usual.c_str(), 0700), 0);
    if (getuid() == 0) {
        ASSERT_EQ(chown(usual.c_str(), 1, 1), 0);
        expectAnother("another user's");
    }
    unsetenv("XDG_RUNTIME_DIR");
}
