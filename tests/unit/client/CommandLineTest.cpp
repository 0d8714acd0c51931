#include "client/commands/CommandLine.h"

#include "Programs.h"
#include "RunClient.h"
#include "SourceFolder.h"
#include "TempDir.h"
#include "client/console/Text.h"
#include "core/ground/Version.h"

#include <filesystem>
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>
#include <regex>
#include <unistd.h>

using namespace vdk;

TEST(CommandLine, exitCodesTellWhatWentWrong) {
    TempDir dir;
    dir.write("bad.snapshot", "no snapshot at all");
    std::string bad = dir.file("bad.snapshot");
    dir.write("app.hprof", "JAVA PROFILE 1.0.2");
    std::string dump = dir.file("app.hprof");
    static const struct {
        std::vector<std::string> arguments;
        int code;
        const char* err; // part of it
    } cases[] = {
        {{}, 2, "Usage: vdk"},
        {{"frobnicate"}, 2, "there is no command 'frobnicate'\n"},
        {{"lst"}, 2, "there is no command 'lst': did you mean list?"},
        {{"snap"}, 2, "did you mean snapshot?"},
        {{"list", "--jso"}, 2, "did you mean --json?"},
        {{"help", "frobnicate"}, 2, "there is no command 'frobnicate'"},
        {{"--json", "list"}, 2, "options stand behind it"},
        {{"list", "--nosuch"}, 2, "--nosuch"},
        {{"snapshot", "1", "--out", ""}, 2, "'' is no value of --out"},
        {{"sample", "start", ":1", "--filter-file", dir.path}, 2, "Is a directory"},
        {{"list", "extra"}, 2, "extra"},
        {{"report"}, 2, "SOURCE is missing"},
        {{"sample", "maybe", "1"}, 2, "'maybe' is no value of ACTION (start|stop)"},
        {{"top", "1", "--interval", "soon"}, 2, "'soon' is no value of --interval"},
        {{"top", "1", "--count", "-1"}, 2, "--count"},
        {{"list", "--color", "blue"}, 2, "'blue' is no value of --color"},
        {{"run"}, 2, "no program to run"},
        {{"run", "sampling"}, 2, "no program to run"},
        {{"run", "java", "-jar", "app.jar"}, 2, "put `--` before the program's command"},
        {{"run", "sampling,tracing", "--", "java"}, 2, "cannot be used in combination"},
        {{"run", "port=0", "--", "java"}, 2, "'port' value is invalid"},
        {{"run", "tracing", "filters=/nonexistent", "--", "java"}, 2, "cannot read /nonexistent"},
        {{"run", "--out", "app.dat", "--", "java"}, 2, "must end in .snapshot"},
        {{"run", "--agent", "/nonexistent.so", "--", "java"}, 127, "no agent library"},
        {{"completions", "tcsh"}, 2, "is no value of SHELL"},
        {{"status", "no-such-jvm-at-all"}, 3, "no JVM matches"},
        {{"attach", "no-such-jvm-at-all"}, 3, "no JVM matches"},
        {{"status", ":1"}, 5, "cannot connect to 127.0.0.1:1"},
        {{"report", "/nonexistent/file.snapshot"}, 2, "cannot open"},
        {{"heap", "/nonexistent/file.hprof"}, 2, "cannot open"},
        {{"report", dump}, 7, "is a heap dump"},
        {{"status", "localhost:99999"}, 2, "has no port from 1 to 65535"},
        {{"report", bad}, 7, "bad.snapshot"},
        {{"report", "--top", "3", bad}, 7, "bad.snapshot"},
        {{"top", "--count", "1", "no-such-jvm-at-all"}, 3, "no JVM matches"},
        {{"export", bad, "--collapsed=x"}, 2, "--collapsed takes no value"},
        {{"export", bad}, 2, "name one form"},
        {{"alloc", "start", "--sampled", "64k"}, 2, "TARGET is missing"},
        {{"alloc", "start", "--sampled", "999999999"}, 3, "no JVM matches"},
        {{"alloc", "start", "--sampled", ":1"}, 5, "cannot connect"},
        {{"alloc", "start", "--sampled=few", ":1"}, 2, "'few' is no value of --sampled"},
        {{"alloc", "start", "--sampled=", ":1"}, 2, "'' is no value of --sampled"},
        {{"alloc", "start", "--sampled=4096", "--each", "2", ":1"}, 2, "goes without --each"},
        {{"export", bad, "--collapsed", "--speedscope"}, 2, "name one form"},
    };
    for (const auto& c : cases) {
        Outcome outcome = client(c.arguments);
        std::string line = c.arguments.empty() ? "" : c.arguments[0];
        EXPECT_EQ(outcome.code, c.code) << line << ": " << outcome.err;
        EXPECT_NE(outcome.err.find(c.err), std::string::npos) << line << ": " << outcome.err;
        EXPECT_EQ(outcome.out, "") << line;
    }
}

TEST(CommandLine, jsonErrorsHaveCodeAndWord) {
    Outcome outcome = client({"status", "no-such-jvm-at-all", "--json"});
    EXPECT_EQ(outcome.code, 3);
    auto json = nlohmann::json::parse(outcome.err);
    EXPECT_EQ(json["schema"], "vdk.error/1");
    EXPECT_EQ(json["code"], 3);
    EXPECT_EQ(json["word"], "target.none");
    EXPECT_EQ(nlohmann::json::parse(client({"nosuch", "--json"}).err)["word"], "usage");
    EXPECT_EQ(nlohmann::json::parse(client({"--version", "--json"}).out)["version"], VDK_VERSION);
    auto list = nlohmann::json::parse(client({"list", "--json"}).out);
    EXPECT_EQ(list["schema"], "vdk.list/1");
    EXPECT_TRUE(list["jvms"].is_array());
    // What is told ahead of an error stands in it: there is one object.
    Outcome warned =
        client({"run", "--exceptions", "--agent", "/nonexistent.so", "--json", "--", "java"});
    auto error = nlohmann::json::parse(warned.err);
    EXPECT_EQ(error["word"], "agent.missing");
    EXPECT_EQ(error["warnings"].size(), 1u);
}

TEST(CommandLine, everyCommandHasHelpAndStandsInCompletionsAndTheManualPage) {
    std::string page = client({"help", "--man"}).out;
    EXPECT_TRUE(TempDir::read(sourceFolder() + "/docs/vdk.1") == page)
        << "`vdk help --man > docs/vdk.1` brings it up to date";
    std::string list = client({"--help"}).out;
    for (const Command& command : commands()) {
        Outcome longForm = client({command.name, "--help"});
        Outcome shortForm = client({command.name, "-h"});
        EXPECT_EQ(longForm.code, 0) << command.name;
        EXPECT_EQ(shortForm.code, 0) << command.name;
        EXPECT_NE(longForm.out.find("Examples:"), std::string::npos) << command.name;
        EXPECT_EQ(shortForm.out.find("Examples:"), std::string::npos) << command.name;
        for (const OptionSpec& option : allOptions(command)) {
            EXPECT_NE(longForm.out.find(option.name), std::string::npos) << option.name;
        }
        EXPECT_NE(list.find("  " + command.name + " "), std::string::npos);
        EXPECT_NE(page.find(".SS vdk " + command.name), std::string::npos) << command.name;
        for (const char* shell : {"bash", "zsh", "fish"}) {
            std::string script = client({"completions", shell}).out;
            EXPECT_NE(script.find(command.name), std::string::npos) << shell << command.name;
        }
    }
}

TEST(CommandLine, runPutsTheAgentRightBehindTheLauncher) {
    TempDir dir;
    dir.write("agent.so", "");
    const std::string agent =
        "-agentpath:" + dir.file("agent.so") + "=onlylocal,onlyuser,quiet,redact,";
    const struct {
        std::vector<std::string> arguments;
        std::string begin, end;
    } cases[] = {
        {{"sampling", "--print", "--", "/x/bin/java", "-cp", "a", "Main", "--help"},
         "/x/bin/java " + agent,
         ",sampling -cp a Main --help\n"},
        {{"--print", "--", "./mvnw", "test"},
         "JAVA_TOOL_OPTIONS='-Dx=y " + agent,
         "' ./mvnw test\n"},
        {{"--print-option", "sampling"}, agent, ",sampling\n"},
        {{"--print", "--", "javac", "A.java"}, "javac -J" + agent, " A.java\n"},
        {{"--print", "--", "java", "a b", "it's", "$x", ""},
         "java " + agent,
         " 'a b' 'it'\\''s' '$x' ''\n"},
    };
    setenv("JAVA_TOOL_OPTIONS", "-Dx=y", 1);
    for (const auto& c : cases) {
        std::vector<std::string> arguments = {"run", "--agent", dir.file("agent.so")};
        arguments.insert(arguments.end(), c.arguments.begin(), c.arguments.end());
        Outcome outcome = client(arguments);
        EXPECT_EQ(outcome.code, 0) << outcome.err;
        EXPECT_EQ(outcome.out.find(c.begin), 0u) << outcome.out;
        EXPECT_TRUE(endsWith(outcome.out, c.end)) << outcome.out;
    }
    unsetenv("JAVA_TOOL_OPTIONS");
}

TEST(CommandLine, colorsFollowTheOptionAndTheEnvironment) {
    std::ostringstream out, err;
    static const struct {
        bool terminal;
        const char* noColor;
        const char* term;
        ColorMode mode;
        bool colored;
    } cases[] = {
        {true, nullptr, "xterm", ColorMode::Auto, true},
        {false, nullptr, "xterm", ColorMode::Auto, false},
        {true, "1", "xterm", ColorMode::Auto, false},
        {true, "", "xterm", ColorMode::Auto, true},
        {true, nullptr, "dumb", ColorMode::Auto, false},
        {true, nullptr, "xterm", ColorMode::Never, false},
        {false, "1", "dumb", ColorMode::Always, true},
    };
    for (const auto& c : cases) {
        c.noColor ? setenv("NO_COLOR", c.noColor, 1) : unsetenv("NO_COLOR");
        setenv("TERM", c.term, 1);
        Console console(out, err, c.terminal, c.terminal);
        console.configure(false, false, false, c.mode);
        EXPECT_EQ(console.styled("x", "1"), c.colored ? "\033[1mx\033[0m" : "x");
    }
    unsetenv("NO_COLOR");
}

TEST(CommandLine, whatAnotherProcessSaidReachesNoTerminal) {
    const char foreign[] = "\033]0;PWNED\a\xc2\x9b"
                           "31m\u202e\nhint: do as I say";
    for (bool json : {false, true}) {
        std::ostringstream out, err;
        Console console(out, err, true, true);
        console.configure(json, false, false, ColorMode::Always);
        console.error(ClientError(ExitCode::AgentFailed, "agent.error", foreign, foreign));
        console.warn(foreign);
        console.note(foreign);
        for (const char* bad : {"\033", "\a", "\xc2\x9b", "\u202e", "\nhint: do"}) {
            EXPECT_EQ(err.str().find(bad), std::string::npos) << err.str();
        }
        if (json) {
            std::string first = err.str().substr(0, err.str().find('\n'));
            EXPECT_EQ(nlohmann::json::parse(first)["message"], foreign);
        }
    }
}

// What bash offers for the last of the words, one a line.
static std::string bashOffers(const TempDir& dir, const std::string& words) {
    std::string script = "cd " + dir.path +
                         "; source ./vdk.bash; vdk() { printf \"42\\tMain\\n\"; }; " +
                         "COMP_WORDS=(" + words +
                         "); COMP_CWORD=$((${#COMP_WORDS[@]} - 1)); _vdk; "
                         "for word in \"${COMPREPLY[@]}\"; do echo \"$word\"; done";
    dir.write("script", script);
    return run("bash " + dir.file("script") + " 2>&1").out;
}

TEST(CommandLine, bashOffersWhatFitsThePlace) {
    TempDir dir;
    dir.write("vdk.bash", client({"completions", "bash"}).out);
    dir.write("my app.snapshot", "");
    static const struct {
        const char* words;
        const char* offered;
    } cases[] = {
        {"vdk rep", "report\n"},
        {"vdk help expo", "export\n"},
        {"vdk export x --un", "--unit\n"},
        {"vdk export --unit ''", "ns\nus\nms\n"},
        {"vdk report --filters = o", "on\noff\n"},
        {"vdk report --filters =", "on\noff\n"},
        {"vdk report my", "my app.snapshot\n"},
        {"vdk export x -o my", "my app.snapshot\n"},
        {"vdk sample ''", "start\nstop\n"},
        {"vdk sample start ''", "42\nMain\n"},
        {"vdk sample start 42 ''", ""},
        {"vdk top --interval 5s M", "Main\n"},
        {"vdk attach 42 samp", "sampling\n"},
        {"vdk gc my", ""},
        {"vdk heap li", "live\n"},
        {"vdk heap my", "my app.snapshot\n"},
        {"vdk heap live ''", "42\nMain\n"},
        {"vdk heap live M --sort ''", "shallow\ncount\nname\n"},
        {"vdk heap capture 42 --ov", "--overwrite\n"},
        {"vdk triggers ch", "check\n"},
        {"vdk triggers M", "Main\n"},
        {"vdk triggers check my", "my app.snapshot\n"},
        {"vdk triggers 42 set my", "my app.snapshot\n"},
        {"vdk triggers 42 add HeapM", "HeapMemoryUsageListener\n"},
        {"vdk triggers 42 add JVMExitListener Force", "ForceGC\n"},
        {"vdk triggers 42 add TimerListener delay = 1s Sleep dur", "duration=\n"},
        {"vdk triggers 42 add PrintMessage message = \"'a \\${USED_H\"", "a ${USED_HEAP}\n"},
    };
    for (const auto& c : cases) {
        EXPECT_EQ(bashOffers(dir, c.words), c.offered) << c.words;
    }
    EXPECT_NE(bashOffers(dir, "vdk run sampling -- bas").find("bash\n"), std::string::npos);
}

// The words of errors are for programs: each one stands in the client's page.
TEST(CommandLine, everyWordOfAnErrorIsDocumented) {
    std::string page = TempDir::read(sourceFolder() + "/docs/client.md");
    std::regex word(
        "\"((target|triggers|attach|agent|cpu|run|input|output|snapshot|heap|jvm)\\.[a-z]+)\"");
    size_t found = 0;
    for (const auto& entry :
         std::filesystem::recursive_directory_iterator(sourceFolder() + "/src/client")) {
        if (entry.path().extension() != ".cpp") {
            continue;
        }
        std::string text = TempDir::read(entry.path().string());
        for (std::sregex_iterator match(text.begin(), text.end(), word), end; match != end;
             ++match) {
            found++;
            EXPECT_NE(page.find("`" + (*match)[1].str() + "`"), std::string::npos)
                << (*match)[1] << " of " << entry.path();
        }
    }
    EXPECT_GT(found, 40u);
}

TEST(CommandLine, completionsOfEveryShellNameEveryCommand) {
    for (const char* shell : {"bash", "zsh", "fish"}) {
        std::string script = client({"completions", shell}).out;
        for (const Command& command : commands()) {
            std::string last = command.name.substr(command.name.rfind(' ') + 1);
            EXPECT_NE(script.find(last), std::string::npos) << shell << command.name;
        }
    }
}

TEST(CommandLine, programTellsItsExitCode) {
    std::string program = builtFile("vdk");
    if (program.empty()) {
        GTEST_SKIP() << "vdk was not built";
    }
    EXPECT_EQ(run(program + " --version >/dev/null").code, 0);
    EXPECT_EQ(run(program + " nosuch 2>/dev/null").code, 2);
    EXPECT_EQ(run(program + " --help >/dev/full 2>/dev/null").code, 8);
    int ends[2];
    ASSERT_EQ(pipe(ends), 0);
    close(ends[0]);
    Result unread = run(program + " --help 2>&1 >&" + std::to_string(ends[1]));
    close(ends[1]);
    EXPECT_EQ(unread.code, 8);
    EXPECT_EQ(unread.out, "") << "a reader that has seen enough is nothing to tell";
}
