#include "client/attach/AgentOptions.h"

#include "Expect.h"
#include "TempDir.h"
#include "client/attach/AgentLibraryFile.h"

#include <functional>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

using namespace vdk;

TEST(AgentOptions, defaultsGiveWayToWhatTheUserSays) {
    typedef std::function<void(AgentOptionChoices&)> Choose;
    const Choose run = [](AgentOptionChoices&) {};
    const Choose attach = [](AgentOptionChoices& c) {
        c.attach = true;
        c.workingDir = "/home/me";
    };
    const std::string runHead =
        "onlylocal,onlyuser,quiet,redact,builtinprobes=none,"
        "noexceptionevents,nolocals,latetelemetry,noidlestacks,keepfiltered,nostartgeneration,";
    const std::string tail =
        "disableoomedumper,ondemand,sampler=signal,samplelines,optional,tellsnapshot,";
    const std::string tmp = "tmpdir=/run/vdk-1";
    const std::string attachHead = "onlylocal,onlyuser,quiet,redact,builtinprobes=none,"
                                   "noidlestacks,keepfiltered,nostartgeneration,disableoomedumper,"
                                   "ondemand,sampler=signal,samplelines,";
    const struct {
        Choose choose;
        std::vector<std::string> arguments;
        std::string expected;
    } cases[] = {
        {run, {}, runHead + tail + tmp},
        {run, {"sampling", "port=5"}, runHead + tail + tmp + ",sampling,port=5"},
        {run, {",,sampling,"}, runHead + tail + tmp + ",sampling"},
        {run,
         {"tmpdir=/t,quiet"},
         "onlylocal,onlyuser,redact,builtinprobes=none,noexceptionevents,nolocals,latetelemetry,"
         "noidlestacks,keepfiltered,"
         "nostartgeneration," +
             tail + "tmpdir=/t,quiet"},
        {run,
         {"listen=10.0.0.1:5"},
         "onlyuser,quiet,redact,builtinprobes=none,noexceptionevents,nolocals,latetelemetry,"
         "noidlestacks,keepfiltered,"
         "nostartgeneration," +
             tail + tmp + ",listen=10.0.0.1:5"},
        {run,
         {"onlylocal", "noexceptionevents"},
         "onlyuser,quiet,redact,builtinprobes=none,nolocals,latetelemetry,noidlestacks,"
         "keepfiltered,"
         "nostartgeneration," +
             tail + tmp + ",onlylocal,noexceptionevents"},
        {[](AgentOptionChoices& c) {
             c.remote = c.exceptions = c.locals = c.generations = c.verbose = c.requireAgent =
                 c.oomDump = c.noRedact = true;
             c.eager = true;
         },
         {"sampling"},
         "builtinprobes=none,latetelemetry,noidlestacks,keepfiltered,sampler=signal,samplelines,"
         "tellsnapshot," +
             tmp + ",sampling"},
        {[](AgentOptionChoices& c) {
             c.probes = "Servlets,Threads";
             c.workingDir = "/home/me";
         },
         {"probeclasspath=a.jar:/b.jar"},
         "onlylocal,onlyuser,quiet,redact,builtinprobes=none,"
         "probe=com.vandrik.probes.builtin.Servlets,probe=com.vandrik.probes.builtin.Threads,"
         "noexceptionevents,nolocals,latetelemetry,noidlestacks,keepfiltered,nostartgeneration," +
             tail + tmp + ",probeclasspath=/home/me/a.jar:/b.jar"},
        {[](AgentOptionChoices& c) { c.probes = "all"; },
         {},
         "onlylocal,onlyuser,quiet,redact,noexceptionevents,nolocals,latetelemetry,noidlestacks,"
         "keepfiltered,"
         "nostartgeneration," +
             tail + tmp},
        {run,
         {"noprobe=Threads"},
         "onlylocal,onlyuser,quiet,redact,noexceptionevents,nolocals,latetelemetry,noidlestacks,"
         "keepfiltered,"
         "nostartgeneration," +
             tail + tmp + ",noprobe=Threads"},
        {[](AgentOptionChoices& c) { c.noSnapshot = true; },
         {},
         runHead +
             "disableoomedumper,ondemand,sampler=signal,samplelines,optional,noexitsnapshot," +
             tmp},
        {[](AgentOptionChoices& c) { c.exitSnapshot = "/w/a b.snapshot"; },
         {},
         runHead + tail + "exitsnapshot=VDKQUOTED2f772f6120622e736e617073686f74," + tmp},
        {[](AgentOptionChoices& c) {
             c.only = {"com.shop.*", "B"};
         },
         {},
         runHead +
             "disableoomedumper,ondemand,traceonly=com.shop.*;B,sampler=signal,samplelines,"
             "optional,"
             "tellsnapshot," +
             tmp},
        {[](AgentOptionChoices& c) { c.allUsers = true; },
         {},
         "onlylocal,quiet,redact,builtinprobes=none,noexceptionevents,nolocals,latetelemetry,"
         "noidlestacks,keepfiltered,"
         "nostartgeneration," +
             tail + tmp},
        {attach, {}, attachHead + tmp},
        {attach, {"dir=snaps,filters=/abs"}, attachHead + tmp + ",dir=/home/me/snaps,filters=/abs"},
        {[](AgentOptionChoices& c) { c.attach = c.generations = true; },
         {},
         "onlylocal,onlyuser,quiet,redact,builtinprobes=none,noidlestacks,keepfiltered,"
         "disableoomedumper,"
         "ondemand,sampler="
         "signal,samplelines," +
             tmp},
    };
    for (const auto& c : cases) {
        AgentOptionChoices choices;
        choices.tmpDir = "/run/vdk-1";
        c.choose(choices);
        std::string options = composeAgentOptions(c.arguments, choices);
        EXPECT_EQ(options, c.expected);
        if (options.find("filters=") == std::string::npos) {
            EXPECT_EQ(wordOf([&] { checkAgentOptions({options}, false, choices.eager); }), "")
                << options;
        }
    }
    EXPECT_EQ(wordOf([] { checkAgentOptions({"traceonly=B"}, false, true); }), "agent.options");
    EXPECT_EQ(wordOf([] { composeAgentOptions({"--port=5"}, {}); }), "usage");
    AgentOptionChoices unknown;
    unknown.probes = "Servlets,Nobody";
    EXPECT_EQ(wordOf([&] { composeAgentOptions({}, unknown); }), "usage");
    EXPECT_EQ(quoteOptionValue("VDKQUOTEDx"), "VDKQUOTED56444b51554f54454478");
}

TEST(AgentOptions, whatTheAgentWouldRefuseOrIgnoreIsKnownAhead) {
    const struct {
        const char* options;
        bool elsewhere; // files are those of the target, which may not be seen from here
        const char* word;
        const char* reason;
    } cases[] = {
        {"sampling,port=10005", false, "", ""},
        {"samplin", false, "agent.options", "samplin"},
        {"help", false, "agent.options", "help"},
        {"sampling,tracing", false, "agent.options", "cannot be used in combination"},
        {"tracing,filters=/nonexistent/f", false, "input.open", ""},
        {"triggers=/nonexistent/t", false, "input.open", ""},
        {"sampling,port=10005", true, "", ""},
        {"tracing,traceonly=com.shop.*;B", false, "", ""},
        {"filters=/only/in/the/target,tracing", true, "", ""},
        {"optionsfile=/only/in/the/target", true, "", ""},
        {"port=0", true, "agent.options", "'port' value is invalid"},
        {"sampling,tracing", true, "agent.options", "cannot be used in combination"},
        {"help", true, "agent.options", "help"},
    };
    for (const auto& c : cases) {
        std::string message;
        EXPECT_EQ(wordOf([&] { checkAgentOptions({c.options}, c.elsewhere, false); }, &message),
                  c.word)
            << c.options;
        EXPECT_NE(message.find(c.reason), std::string::npos) << message;
    }
    EXPECT_EQ(givenOption({"sampling", "tmpdir=/a,tmpdir=VDKQUOTED2f62"}, "tmpdir="), "/b");
    EXPECT_NE(explainAgentResult(77).message.find("77"), std::string::npos);
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
