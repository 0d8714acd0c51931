// The commands about triggers: those of an agent, and the check of a file.
#include "client/commands/Commands.h"
#include "client/commands/Sources.h"
#include "client/console/Text.h"
#include "client/triggers/TriggerText.h"

#include <algorithm>
#include <set>

namespace vdk {

namespace {

using Properties = std::vector<std::pair<std::string, std::string>>;

std::string counted(size_t count, const char* what) {
    return formatCount(int64_t(count)) + " " + what + (count == 1 ? "" : "s");
}

void writeProperties(JsonWriter& json, const Properties& properties) {
    json.key("properties").beginObject();
    for (const auto& [name, value] : properties) {
        json.field(name, value);
    }
    json.endObject();
}

void writeListeners(JsonWriter& json, const std::vector<TriggerListener>& listeners) {
    json.key("listeners").beginArray();
    for (const TriggerListener& listener : listeners) {
        json.beginObject().field("name", listener.name);
        writeProperties(json, listener.properties);
        json.key("actions").beginArray();
        for (const TriggerAction& action : listener.actions) {
            json.beginObject().field("name", action.name).key("event");
            action.event.empty() ? json.nullValue() : json.value(action.event);
            writeProperties(json, action.properties);
            json.endObject();
        }
        json.endArray().endObject();
    }
    json.endArray();
}

int show(Console& console, LiveAgent& agent) {
    const std::string text = agent.client.triggers();
    if (console.json) {
        JsonDocument json(console, "vdk.triggers/1");
        json.field("pid", agent.info.pid).field("session", agent.info.sessionName);
        json.field("text", text);
        writeListeners(json, checkTriggerText(text).listeners);
        json.end();
        return 0;
    }
    for (const std::string& line : split(text, '\n')) {
        if (!line.empty()) {
            console.out << printable(line) << "\n";
        }
    }
    if (text.empty()) {
        console.note("no triggers are set");
    }
    return 0;
}

std::string textToSet(const std::string& action, const std::vector<std::string>& words) {
    if (action == "clear") {
        return "";
    }
    const bool isFile = action == "set";
    const std::string text = isFile ? readTriggerFile(words[0]) : triggerTextOf(words);
    requireGoodTriggers(checkTriggerText(text), isFile ? words[0] : "the lines to add");
    return text;
}

void checkWords(const std::string& action, const std::vector<std::string>& words) {
    const bool takesWords = action == "set" || action == "add";
    if (takesWords == words.empty() || (action == "set" && words.size() > 1)) {
        throw ClientError(ExitCode::Usage, "usage",
                          action == "set"   ? "set wants one file"
                          : action == "add" ? "add wants a listener and its actions"
                                            : action + " takes nothing more");
    }
}

void writeCheck(Console& console, const std::string& file, const TriggerCheck& check) {
    JsonDocument json(console, "vdk.triggers.check/1");
    json.field("file", file).field("good", check.problems.empty());
    json.key("problems").beginArray();
    for (const TriggerProblem& problem : check.problems) {
        json.beginObject().field("line", problem.line).field("word", problem.word);
        json.field("message", problem.message).key("expected").beginArray();
        for (const std::string& name : problem.expected) {
            json.value(name);
        }
        json.endArray().endObject();
    }
    json.endArray().key("needs").beginArray();
    for (const TriggerNeed& need : check.needs) {
        json.beginObject().field("line", need.line).field("action", need.action);
        json.field("option", need.option).endObject();
    }
    json.endArray();
    writeListeners(json, check.listeners);
    json.end();
}

void printCheck(Console& console, const std::string& file, const TriggerCheck& check) {
    for (const TriggerProblem& problem : check.problems) {
        console.out << printable(file) << ":" << problem.line << ": " << problem.message << "\n";
        // A name that is near says it already.
        if (!problem.expected.empty() &&
            problem.message.find("did you mean") == std::string::npos) {
            console.out << "    there are " << join(problem.expected, ", ") << "\n";
        }
    }
    for (const TriggerNeed& need : check.needs) {
        console.out << printable(file) << ":" << need.line << ": " << need.action
                    << " needs the agent's option " << need.option << "\n";
    }
    if (check.problems.empty()) {
        console.out << counted(check.listeners.size(), "listener") << ", "
                    << counted(check.actionCount(), "action") << "\n";
    }
}

} // namespace

int runTriggers(Console& console, const Arguments& arguments) {
    const std::string action = arguments.text("ACTION", "show");
    const std::vector<std::string>& words = arguments.all("LINE");
    checkWords(action, words);
    if (action == "show") {
        LiveAgent agent = connectAgent(arguments.text("TARGET"), arguments);
        return show(console, agent);
    }
    const std::string text = textToSet(action, words);
    LiveAgent agent = connectAgent(arguments.text("TARGET"), arguments);
    agent.client.setTriggers(text, action == "add");
    writeDone(console, "vdk.triggers.changed/1", agent,
              action == "clear" ? "triggers cleared"
              : action == "add" ? "triggers added"
                                : "triggers set");
    return 0;
}

int runTriggersCheck(Console& console, const Arguments& arguments) {
    const std::string file = arguments.text("FILE");
    const TriggerCheck check = checkTriggerText(readTriggerFile(file));
    if (console.json) {
        writeCheck(console, file, check);
    } else {
        printCheck(console, file, check);
    }
    return int(check.problems.empty() ? ExitCode::Done : ExitCode::Refused);
}

} // namespace vdk
