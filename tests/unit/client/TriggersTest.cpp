// The check of trigger texts, and the commands about them.
#include "Expect.h"
#include "FakeAgent.h"
#include "RunClient.h"
#include "SourceFolder.h"
#include "TempDir.h"
#include "client/triggers/TriggerText.h"

#include <algorithm>
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>
#include <regex>
#include <set>

using namespace vdk;

TEST(TriggerText, faultsAreToldWithTheirLineAndWhatWouldBeRight) {
    static const struct {
        const char* text;
        int line; // 0: nothing is wrong
        const char* word;
        const char* message; // part of it
    } cases[] = {
        {"", 0, "", ""},
        {"# a remark\n\n  \nTimerListener delay=10s maxTriggerCount=3\r\n  ForceGC\r\n", 0, "", ""},
        {"MethodListener methodPattern=a.B:c(*) fillThis=true\n  onenter:  ForceGC\n"
         "  onexception: PrintMessage message=${PARAMS\\sTO_STRING}\\n${USED_HEAP\\s%}\n",
         0, "", ""},
        {"HeapMemoryListener\n", 1, "HeapMemoryListener", "did you mean HeapMemoryUsageListener?"},
        {"timer delay=1s", 1, "timer", "'timer' is no listener: did you mean TimerListener?"},
        {"Frobnicate", 1, "Frobnicate", "'Frobnicate' is no listener"},
        {"# x\nForceGC", 2, "ForceGC", "belongs to an action, whose line begins with two blanks"},
        {"HeapMemoryUsageListener minimumTimeToActivateMs=0 maxTriggerCount=1\n\tForceGC", 0, "",
         ""},
        {"MethodListener\n", 1, "MethodListener", "has no methodPattern"},
        {"TimerListener delay=1s delayMs=5", 1, "delayMs=5", "twice"},
        {"JVMExitListener\n  TimerListener", 2, "TimerListener", "begins without a blank"},
        {"  ForceGC\n", 1, "ForceGC", "stands before any listener"},
        {"JVMExitListener\n  ForceGc\n", 2, "ForceGc", "is no action: did you mean ForceGC?"},
        {"TimerListener dely=1s\n", 1, "dely=1s",
         "TimerListener has no property 'dely': did you mean delay?"},
        {"TimerListener delay\n", 1, "delay", "'delay' has no value"},
        {"TimerListener delay=1s delay=2s\n", 1, "delay=2s", "twice"},
        {"TimerListener delay=10x", 1, "10x", "is no duration: a whole number with ms, s, m or h"},
        {"TimerListener delay=10", 1, "10", "is no duration"},
        {"TimerListener delay=99999999999999999999s", 1, "99999999999999999999s", "is no duration"},
        {"TimerListener delay=1s maxTriggerCount=few", 1, "few", "is no whole number"},
        {"MethodListener methodPattern=* fillThis=yes", 1, "yes", "is neither true nor false"},
        {"JVMExitListener\n  RecordMethodInvocation", 2, "RecordMethodInvocation",
         "stands under MethodListener only, not under JVMExitListener"},
        {"MethodListener methodPattern=*\n  ForceGC", 2, "ForceGC",
         "begins with onenter:, onreturn:, onexception:"},
        {"MethodListener methodPattern=*\n  onenter:", 2, "", "there is no action behind"},
        {"JVMExitListener\n  onenter: ForceGC", 2, "onenter:", "is for actions of MethodListener"},
        {"JVMExitListener\n  PrintMessage message=a b", 2, "b",
         "in a value a blank is written \\s"},
        {"JVMExitListener\n  PrintMessage message=${USED_HEAP\\sTB}", 2, "TB",
         "has no option 'TB'"},
        {"MethodListener methodPattern=*\n  onenter: PrintMessage message=${EVAL_FIELD}", 2,
         "EVAL_FIELD", "wants the name of a field"},
        {"JVMExitListener\n  PrintMessage message=${USED_HAEP}", 2, "USED_HAEP",
         "is no macro: did you mean USED_HEAP?"},
        {"JVMExitListener\n  PrintMessage message=${USED_HEAP", 2, "${USED_HEAP", "is not closed"},
        {"JVMExitListener\n  PrintMessage message=${PARAMS}", 2, "PARAMS",
         "under JVMExitListener there is none"},
    };
    for (const auto& c : cases) {
        const TriggerCheck check = checkTriggerText(c.text);
        ASSERT_EQ(check.problems.size(), c.line == 0 ? 0u : 1u)
            << c.text << (check.problems.empty() ? "" : check.problems[0].message);
        if (c.line > 0) {
            EXPECT_EQ(check.problems[0].line, c.line) << c.text;
            EXPECT_EQ(check.problems[0].word, c.word) << c.text;
            EXPECT_NE(check.problems[0].message.find(c.message), std::string::npos)
                << check.problems[0].message;
        }
    }
}

TEST(TriggerText, wordsOfACommandLineAreLines) {
    EXPECT_EQ(triggerTextOf({"TimerListener", "delay=1h", "PrintMessage", "message=a b\tc",
                             "MethodListener methodPattern=x.Y:z(*)", "onenter:", "ForceGC",
                             "onreturn: ForceGC"}),
              "TimerListener delay=1h\n  PrintMessage message=a\\sb\\tc\n"
              "MethodListener methodPattern=x.Y:z(*)\n  onenter: ForceGC\n  onreturn: ForceGC\n");
}

TEST(Triggers, aFileIsCheckedWithoutAJvm) {
    TempDir dir;
    dir.write("good", "TimerListener delay=1h\n  ForceGC\n");
    dir.write("bad", "TimerListener delay=1h\n  ForceGc\nJVMExit\n");
    Outcome good = client({"triggers", "check", dir.file("good")});
    EXPECT_EQ(good.code, 0) << good.err;
    EXPECT_EQ(good.out, "1 listener, 1 action\n");
    Outcome bad = client({"triggers", "check", dir.file("bad")});
    EXPECT_EQ(bad.code, 1);
    EXPECT_NE(bad.out.find("bad:2: 'ForceGc' is no action: did you mean ForceGC?\n"),
              std::string::npos)
        << bad.out;
    EXPECT_NE(bad.out.find("bad:3: 'JVMExit' is no listener"), std::string::npos) << bad.out;
    auto json = nlohmann::json::parse(client({"triggers", "check", dir.file("bad"), "--json"}).out);
    EXPECT_EQ(json["schema"], "vdk.triggers.check/1");
    EXPECT_EQ(json["good"], false);
    EXPECT_EQ(json["problems"][0]["line"], 2);
    EXPECT_EQ(json["problems"][0]["word"], "ForceGc");
    EXPECT_EQ(json["listeners"][0]["properties"]["delay"], "1h");
    Outcome none = client({"triggers", "check", dir.file("none")});
    EXPECT_EQ(none.code, 2);
    EXPECT_NE(none.err.find("cannot read"), std::string::npos) << none.err;
    // A program is not started to end over them.
    Outcome run = client({"run", "triggers=" + dir.file("bad"), "--", "java"});
    EXPECT_EQ(run.code, 1);
    EXPECT_NE(run.err.find("bad, line 2: 'ForceGc' is no action"), std::string::npos) << run.err;
    EXPECT_NE(run.err.find("(and another problem)"), std::string::npos) << run.err;
}

TEST(Triggers, commandLinesThatMakeNoSenseAreRefusedAhead) {
    static const struct {
        std::vector<std::string> words;
        int code;
        const char* err;
    } cases[] = {
        {{"triggers", ":1", "set"}, 2, "set wants one file"},
        {{"triggers", ":1", "add"}, 2, "add wants a listener and its actions"},
        {{"triggers", ":1", "clear", "all"}, 2, "clear takes nothing more"},
        {{"triggers", ":1", "set", "/nonexistent"}, 2, "cannot read /nonexistent"},
        {{"triggers", ":1", "add", "ForceGC"}, 1, "line 1: 'ForceGC' stands before any listener"},
        {{"triggers", ":1", "add", "JVMExitListener", "ForceGC"}, 5, "cannot connect"},
    };
    for (const auto& c : cases) {
        Outcome outcome = client(c.words);
        EXPECT_EQ(outcome.code, c.code) << outcome.err;
        EXPECT_NE(outcome.err.find(c.err), std::string::npos) << outcome.err;
    }
}

// The cells of a table's rows in the page, by the name in the first of them.
static std::map<std::string, std::string> rowsOf(const std::string& page,
                                                 const std::string& heading) {
    const size_t start = page.find("\n## " + heading + "\n");
    const size_t end = page.find("\n## ", start + 1);
    const std::string part = page.substr(start, end - start);
    const std::regex row("\\n\\| `([A-Za-z_]+)` \\| ([^|]*)\\|");
    std::map<std::string, std::string> rows;
    for (std::sregex_iterator match(part.begin(), part.end(), row), last; match != last; ++match) {
        rows[(*match)[1]] = (*match)[2];
    }
    return rows;
}

static std::set<std::string> wordsOf(const std::string& cell) {
    const std::regex word("`([A-Za-z0-9_%]+)`");
    std::set<std::string> words;
    for (std::sregex_iterator match(cell.begin(), cell.end(), word), last; match != last; ++match) {
        words.insert((*match)[1]);
    }
    return words;
}

TEST(Triggers, thePageHasTheNamesThatTheAgentHas) {
    const std::string page = TempDir::read(sourceFolder() + "/docs/triggers.md");
    std::map<std::string, std::set<std::string>> known, told;
    for (const auto& [heading, list] :
         {std::pair("Listeners", &triggerListeners()), std::pair("Actions", &triggerActions())}) {
        for (const auto& [name, cell] : rowsOf(page, heading)) {
            told[name] = wordsOf(cell);
        }
        for (const TriggerName& name : *list) {
            known[name.name];
            for (const TriggerProperty& property : name.properties) {
                known[name.name].insert(property.name);
            }
        }
    }
    // These are told once.
    for (const char* common : {"maxTriggerCount", "minimumInterval"}) {
        EXPECT_NE(page.find("`" + std::string(common) + "`"), std::string::npos);
        for (const auto& name : triggerListeners()) {
            known[name.name].erase(common);
        }
    }
    for (const auto& [name, cell] : rowsOf(page, "Macros")) {
        told[name] = wordsOf(cell);
    }
    for (const TriggerMacro& macro : triggerMacros()) {
        known[macro.name] = {macro.options.begin(), macro.options.end()};
    }
    EXPECT_EQ(told, known);
}
