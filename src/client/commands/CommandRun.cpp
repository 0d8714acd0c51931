#include "client/attach/AgentLibraryFile.h"
#include "client/attach/AgentOptions.h"
#include "client/attach/Launch.h"
#include "client/commands/Commands.h"
#include "client/console/Errors.h"
#include "client/console/Signals.h"
#include "client/console/Text.h"

#include <cerrno>
#include <cstring>
#include <optional>
#include <unistd.h>

namespace vdk {

namespace {

// The agent's option for the JVM's command line; nothing when the agent can't be prepared and the
// program shall run all the same.
std::optional<std::string> agentOption(Console& console, const Arguments& arguments) {
    AgentOptionChoices choices;
    choices.remote = arguments.has("--remote");
    choices.verbose = arguments.has("--banner");
    choices.exceptions = arguments.has("--exceptions");
    choices.generations = arguments.has("--generations");
    choices.locals = arguments.has("--locals");
    choices.allUsers = arguments.has("--all-users");
    choices.noRedact = arguments.has("--no-redact");
    choices.requireAgent = arguments.has("--require-agent");
    choices.oomDump = arguments.has("--oom-dump");
    choices.probes = arguments.text("--probes");
    choices.eager = arguments.has("--eager");
    choices.only = arguments.all("--only");
    if (choices.eager && !choices.only.empty()) {
        throw ClientError(ExitCode::Usage, "usage", "--only does not go with --eager");
    }
    choices.noSnapshot = arguments.has("--no-snapshot");
    if (arguments.has("--out")) {
        choices.exitSnapshot = absoluteName(arguments.text("--out"));
        if (!endsWith(choices.exitSnapshot, ".snapshot") || choices.noSnapshot) {
            throw ClientError(ExitCode::Usage, "usage",
                              choices.noSnapshot ? "--out and --no-snapshot contradict each other"
                                                 : "the name for --out must end in .snapshot");
        }
    }
    checkAgentOptions(arguments.all("OPTION"), false, choices.eager);
    try {
        if (givenOption(arguments.all("OPTION"), "tmpdir=").empty()) {
            choices.tmpDir = ownPrivateDirectory();
        }
    } catch (const ClientError& e) {
        if (choices.requireAgent) {
            throw;
        }
        console.warn(std::string("the program runs without the agent: ") + e.what());
        return std::nullopt;
    }
    std::string options = composeAgentOptions(arguments.all("OPTION"), choices);
    std::string library = findAgentLibrary(arguments.text("--agent"), ExitCode::CannotRun);
    return "-agentpath:" + library + "=" + options;
}

void print(Console& console, const Launch& launch, const std::string& option) {
    if (console.json) {
        JsonDocument json(console, "vdk.run/1");
        json.field("option", option).key("command").beginArray();
        for (const std::string& word : launch.command) {
            json.value(word);
        }
        json.endArray().key("environment").beginObject();
        if (!launch.environment.empty()) {
            json.field(ToolOptionsVariable, launch.environment);
        }
        json.endObject();
        json.end();
        return;
    }
    std::vector<std::string> words;
    if (!launch.environment.empty()) {
        words.push_back(std::string(ToolOptionsVariable) + "=" + shellWord(launch.environment));
    }
    for (const std::string& word : launch.command) {
        words.push_back(shellWord(word));
    }
    console.out << join(words, " ") << "\n";
}

} // namespace

int runRun(Console& console, const Arguments& arguments) {
    if (arguments.has("--exceptions")) {
        console.warn("--exceptions makes throwing some 33 times slower");
    }
    std::optional<std::string> option = agentOption(console, arguments);
    Launch launch{arguments.command, ""};
    if (option) {
        launch = makeLaunch(arguments.command, *option);
    }
    if (arguments.has("--print-option") && !console.json) {
        console.out << option.value_or("") << "\n";
        return 0;
    }
    if (arguments.has("--print") || arguments.has("--print-option")) {
        print(console, launch, option.value_or(""));
        return 0;
    }
    if (option && arguments.has("--out")) {
        // The agent never writes over a file: what is there now is from a run before.
        unlink(arguments.text("--out").c_str());
    }
    console.out.flush();
    restoreSignalHandlers();
    execute(launch);
    throw ClientError(ExitCode::CannotRun, "run.exec",
                      "cannot run " + launch.command.front() + ": " + strerror(errno));
}

} // namespace vdk
