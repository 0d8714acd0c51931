#include "client/attach/AgentOptions.h"

#include "client/console/Errors.h"
#include "client/console/Text.h"
#include "client/triggers/TriggerText.h"
#include "core/ground/Globals.h"
#include "core/ground/Options.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <unistd.h>

namespace vdk {

static const char QuotePrefix[] = "VDKQUOTED";

std::string quoteOptionValue(const std::string& value) {
    bool plain = !startsWith(value, QuotePrefix) &&
                 std::none_of(value.begin(), value.end(),
                              [](unsigned char c) { return c == ',' || c == ' ' || c < 0x20; });
    if (plain) {
        return value;
    }
    static const char digits[] = "0123456789abcdef";
    std::string result = QuotePrefix;
    for (unsigned char c : value) {
        result += digits[c >> 4];
        result += digits[c & 15];
    }
    return result;
}

// Options whose value is a path that the agent opens: it has another working folder.
static std::string withAbsolutePath(const std::string& option, const std::string& workingDir) {
    static const char* const keys[] = {
        "dir=", "tmpdir=", "filters=", "walltimespec=", "triggers=", "exitsnapshot="};
    for (const char* key : keys) {
        if (!startsWith(option, key)) {
            continue;
        }
        std::string value = option.substr(std::string(key).size());
        if (value.empty() || value[0] == '/' || startsWith(value, QuotePrefix) ||
            workingDir.empty()) {
            return option;
        }
        return key + quoteOptionValue(workingDir + "/" + value);
    }
    return option;
}

// The same for the elements of a class path.
static std::string withAbsolutePaths(const std::string& option, const std::string& workingDir) {
    for (const char* key : {"probeclasspath=", "probebootclasspath="}) {
        if (!startsWith(option, key) || workingDir.empty()) {
            continue;
        }
        std::vector<std::string> elements =
            split(unquote(option.substr(strlen(key)).c_str()).c_str(), ':');
        for (std::string& element : elements) {
            if (!element.empty() && element[0] != '/') {
                element.insert(0, workingDir + "/");
            }
        }
        return key + quoteOptionValue(join(elements, ":"));
    }
    return withAbsolutePath(option, workingDir);
}

// The agent registers all of its own probes unless it is told otherwise; a program that nobody asks
// about need not carry their calls.
static void addProbeOptions(std::vector<std::string>& options, const std::string& probes) {
    if (probes == "all") {
        return;
    }
    options.emplace_back("builtinprobes=none");
    if (probes.empty()) {
        return;
    }
    for (const std::string& name : split(probes, ',')) {
        const std::string full = BuiltInProbePackage + name;
        std::vector<std::string> known;
        bool isKnown = false;
        for (const char* const* probe = ourBuiltInProbes; *probe; probe++) {
            known.push_back(std::string(*probe).substr(strlen(BuiltInProbePackage)));
            isKnown = isKnown || full == *probe;
        }
        if (!isKnown) {
            throw ClientError(ExitCode::Usage, "usage",
                              "the agent has no probe '" + printable(name) + "'" +
                                  didYouMean(name, known),
                              "all, or some of " + join(known, ","));
        }
        options.push_back("probe=" + full);
    }
}

std::string composeAgentOptions(const std::vector<std::string>& arguments,
                                const AgentOptionChoices& choices) {
    std::vector<std::string> options;
    for (const std::string& argument : arguments) {
        for (const std::string& option : split(argument, ',')) {
            if (option.empty()) {
                continue;
            }
            if (option[0] == '=' || option[0] == '-') {
                throw ClientError(ExitCode::Usage, "usage",
                                  "'" + printable(option) + "' is no agent option",
                                  "agent options are words such as sampling or port=10005");
            }
            options.push_back(withAbsolutePaths(option, choices.workingDir));
        }
    }
    auto given = [&](const std::string& name) {
        return std::any_of(options.begin(), options.end(), [&](const std::string& option) {
            return endsWith(name, "=") ? startsWith(option, name) : option == name;
        });
    };
    std::vector<std::string> all;
    auto add = [&](bool wanted, const std::string& option) {
        if (wanted && !given(option)) {
            all.push_back(option);
        }
    };
    add(!choices.remote && !given("listen="), "onlylocal");
    add(!choices.remote && !choices.allUsers, "onlyuser");
    add(!choices.verbose, "quiet");
    add(!choices.noRedact, "redact");
    if (!given("builtinprobes=") && !given("noprobe=")) {
        addProbeOptions(all, choices.probes);
    }
    add(!choices.attach && !choices.exceptions, "noexceptionevents");
    add(!choices.attach && !choices.locals, "nolocals");
    add(!choices.attach, "latetelemetry");
    add(true, "noidlestacks");
    add(true, "keepfiltered");
    add(!choices.generations, "nostartgeneration");
    add(!choices.oomDump, "disableoomedumper");
    add(!choices.eager, "ondemand");
    if (!choices.only.empty()) {
        all.push_back("traceonly=" + quoteOptionValue(join(choices.only, ";")));
    }
    add(!given("sampler="), "sampler=signal");
    add(true, "samplelines");
    add(!choices.attach && !choices.requireAgent, "optional");
    add(choices.noSnapshot, "noexitsnapshot");
    add(!choices.attach && !choices.noSnapshot && choices.tellSnapshot, "tellsnapshot");
    if (!choices.exitSnapshot.empty()) {
        all.push_back("exitsnapshot=" + quoteOptionValue(choices.exitSnapshot));
    }
    if (!choices.tmpDir.empty() && !given("tmpdir=")) {
        all.push_back("tmpdir=" + quoteOptionValue(choices.tmpDir));
    }
    all.insert(all.end(), options.begin(), options.end());
    return join(all, ",");
}

std::string givenOption(const std::vector<std::string>& arguments, const std::string& key) {
    std::string value;
    for (const std::string& argument : arguments) {
        for (const std::string& option : split(argument, ',')) {
            if (startsWith(option, key)) {
                value = unquote(option.substr(key.size()).c_str()).c_str();
            }
        }
    }
    return value;
}

// A text that the agent would refuse ends the start of the JVM.
static void checkTriggerFile(const std::string& file, const std::vector<std::string>& options) {
    const TriggerCheck check = checkTriggerText(readTriggerFile(file));
    requireGoodTriggers(check, file);
    for (const TriggerNeed& need : check.needs) {
        if (std::find(options.begin(), options.end(), need.option) == options.end()) {
            throw ClientError(ExitCode::Usage, "agent.options",
                              file + ", line " + std::to_string(need.line) + ": " + need.action +
                                  " needs the agent's option " + need.option,
                              "give " + need.option + " beside triggers=");
        }
    }
}

void checkAgentOptions(const std::vector<std::string>& arguments, bool attach, bool eager) {
    std::vector<std::string> checked;
    if (!eager) {
        checked.emplace_back("ondemand"); // goes with what the client adds
    }
    for (const std::string& argument : arguments) {
        for (const std::string& option : split(argument, ',')) {
            if (!option.empty() && !startsWith(option, "optionsfile=")) {
                checked.push_back(option);
            }
        }
    }
    const long capabilities = ourCapabilities;
    if (attach) {
        ourCapabilities |= CAPABILITY_ATTACHED_AGENT; // some options are for a start only
    }
    Options options{ZVectorSafe<ZString>()};
    ZString reason;
    const bool accepted = options.check(join(checked, ",").c_str(), &reason);
    ourCapabilities = capabilities;
    if (!accepted) {
        throw ClientError(ExitCode::Usage, "agent.options",
                          "the agent would refuse its options: " + printable(reason.c_str()),
                          "`vdk help options` lists them");
    }
    if (attach) {
        return;
    }
    for (const ZString* file : {&options.filters, &options.wallTimeSpec, &options.triggers}) {
        if (!file->isEmpty() && access(file->c_str(), R_OK) != 0) {
            throw ClientError(ExitCode::Usage, "input.open",
                              "cannot read " + printable(file->c_str()) + ": " + strerror(errno));
        }
    }
    if (!options.triggers.isEmpty()) {
        checkTriggerFile(options.triggers.c_str(), checked);
    }
}

AgentStartFailure explainAgentResult(int code) {
    std::string log = "the agent's log says more: ~/.vdk/log/<pid>.log of the target's user";
    switch (code) {
    case 1:
        return {"the JVM gave the agent no tool interface", log};
    case 2:
    case 4:
        return {"the JVM is too old: Java 6 or newer is required", ""};
    case 3:
        return {"the agent did not accept its options",
                "its message stands on the target's standard error; check the options"};
    case 5:
        return {"this build of the IBM JVM is too old", ""};
    case 6:
        return {
            "the JVM lacks a capability that the agent needs",
            "another tool may hold it; start the program with the agent: `vdk run -- java ...`"};
    case 7:
        return {"the platform lacks something that the agent needs", log};
    case 8:
        return {"the agent could not write its runtime archive",
                "give it a writable folder: tmpdir=<folder>"};
    case 9:
        return {"the JVM gave the agent no JNI environment", log};
    case 10:
        return {"the agent's start in the target failed",
                "often the port is taken: leave port= away; " + log};
    case 12:
        return {"the agent is still leaving the JVM", "try again; " + log};
    case 13:
        return {
            "another build of the agent was in this JVM before, and cannot come back by this one",
            "its file was replaced since the JVM started: only a new JVM takes the new one"};
    default:
        return {"the agent's start failed with code " + std::to_string(code), log};
    }
}

} // namespace vdk
