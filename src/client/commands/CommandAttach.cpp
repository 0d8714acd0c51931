#include "client/agent/Protocol.h"
#include "client/attach/AgentLibraryFile.h"
#include "client/attach/AgentOptions.h"
#include "client/attach/Attach.h"
#include "client/attach/TargetLibc.h"
#include "client/commands/Commands.h"
#include "client/commands/Sources.h"
#include "client/console/Errors.h"
#include "client/console/Signals.h"
#include "client/console/Text.h"

#include <algorithm>
#include <optional>
#include <unistd.h>

namespace vdk {

namespace {

[[noreturn]] void failLoad(const LoadOutcome& outcome, const std::string& library) {
    const std::string& text = outcome.message;
    auto says = [&](const char* part) { return containsIgnoringCase(text, part); };
    std::string word = "attach.load", hint;
    if (says("Dynamic agent loading is not enabled")) {
        word = "attach.dynamic";
        hint = "start the program with -XX:+EnableDynamicAgentLoading, or with the agent: "
               "`vdk run -- java ...`";
    } else if (says("failed to map segment") || says("Operation not permitted")) {
        word = "agent.noexec";
        hint = "the target does not allow programs in that folder (noexec): put the library "
               "into another one of the target's and name it, as the target sees it, with --agent";
    } else if (says("No such file") || says("cannot open shared object") ||
               says("Permission denied") || says("was not loaded")) {
        word = "agent.unreachable";
        hint = "the target must be able to open " + library +
               ": check the path, its folders' permissions and the library's C library";
    }
    throw ClientError(ExitCode::AttachRefused, word,
                      "the JVM did not load the agent: " + printableLines(text, 1000), hint);
}

// What is passed as the agent's options. A text that the JVM's protocol cannot take goes into a
// file that the agent reads.
std::string passOptions(Attacher& attacher, AttachFiles& files, const std::string& options) {
    if (options.size() <= AttachV1MaxArgument || attacher.version() >= 2) {
        return options;
    }
    // `quiet` counts from the agent's first line on, before it reads files.
    std::vector<std::string> pieces = split(options, ',');
    bool quiet = std::find(pieces.begin(), pieces.end(), "quiet") != pieces.end();
    return (quiet ? "quiet,optionsfile=" : "optionsfile=") +
           quoteOptionValue(files.provideText("options", options + "\n"));
}

[[noreturn]] void failStart(const ProcFs& processes, const ProcessStatus& target, int code) {
    AgentStartFailure failure = explainAgentResult(code);
    std::string reason = refusalInLog(processes, target);
    throw ClientError(ExitCode::AgentFailed, "agent.start",
                      failure.message + (reason.empty() ? "" : ": " + reason),
                      reason.empty() ? failure.hint : "");
}

void load(Machine& machine, const Jvm& jvm, const Arguments& arguments) {
    const std::vector<std::string>& given = arguments.all("OPTION");
    checkAgentOptions(given, true, arguments.has("--eager"));
    Attacher attacher(machine.processes, jvm, int(arguments.durationMs("--timeout", 10000)));
    checkTargetLibc(machine.processes, jvm.pid);
    char folder[4096];
    AgentOptionChoices choices;
    choices.workingDir = getcwd(folder, sizeof(folder)) ? folder : "";
    std::string wanted = givenOption(given, "tmpdir=");
    if (!wanted.empty() && wanted[0] != '/') {
        wanted = choices.workingDir + "/" + wanted;
    }
    AttachFiles files(machine.processes, attacher.target(), wanted);
    // An agent that was there before comes back: another copy would be a second one.
    std::string path = machine.processes.mappedAgent(jvm.pid);
    if (path.empty()) {
        path = namedAgentLibrary(arguments.text("--agent"));
        if (!files.hasOwnLibrary(path)) {
            path = files.provideLibrary(
                findAgentLibrary(arguments.text("--agent"), ExitCode::AttachRefused));
        }
    }
    attacher.open();
    choices.attach = true;
    choices.remote = arguments.has("--remote");
    choices.allUsers = arguments.has("--all-users");
    choices.noRedact = arguments.has("--no-redact");
    choices.verbose = arguments.has("--banner");
    choices.generations = arguments.has("--generations");
    choices.eager = arguments.has("--eager");
    choices.oomDump = arguments.has("--oom-dump");
    choices.probes = arguments.text("--probes");
    choices.tmpDir = files.directory();
    std::string options = composeAgentOptions(given, choices);
    LoadOutcome outcome = parseLoadReply(
        attacher.execute("load", {path, "true", passOptions(attacher, files, options)}));
    if (!outcome.loaded) {
        failLoad(outcome, path);
    }
    if (outcome.returnCode != 0) {
        failStart(machine.processes, attacher.target(), outcome.returnCode);
    }
}

// The marker says so, and the process does listen on the port; now its agent must answer. A
// left-over marker may name a port that the application took.
bool hasAgent(const Machine& machine, const Jvm& jvm, int timeoutMs) {
    bool mayAttach = geteuid() == 0 || long(geteuid()) == jvm.uid;
    if (!mayAttach || !jvm.isProfiled()) {
        return false;
    }
    try {
        return connectAgent(machine, jvm, timeoutMs).info.pid == jvm.pid;
    } catch (const ClientError& e) {
        // Said by something that is no agent of that process; all else may be one in trouble.
        if (e.word == "agent.data" || e.word == "target.foreign" || e.word == "agent.closed") {
            return false;
        }
        throw;
    }
}

// An agent that was told to wait has no port yet. Anything else that has none does not work.
void checkPort(const ProcFs& processes, const Jvm& jvm, const std::vector<std::string>& given) {
    if (jvm.isProfiled() || !givenOption(given, "delay=").empty()) {
        return;
    }
    std::string process = "process " + std::to_string(jvm.pid);
    if (!processes.status(jvm.pid)) {
        throw ClientError(ExitCode::AgentFailed, "target.ended", process + " has ended");
    }
    if (jvm.markersHidden) {
        throw ClientError(ExitCode::AgentFailed, "agent.port",
                          "the JVM loaded the agent, but " + process +
                              " has shared memory of its own, which this user may not look at: "
                              "the agent's port is not known here",
                          "run vdk as root, or " + fromInside(processes, jvm));
    }
    throw ClientError(ExitCode::AgentFailed, "agent.port",
                      "the JVM said that it loaded the agent, but no agent in " + process +
                          " listens",
                      "the agent's log says more: ~/.vdk/log/<pid>.log of the target's user");
}

// What can still be done with options for an agent that is there: switch on what they ask for.
// Throws ClientError Refused "attach.present" for any other.
void applyToPresent(const Jvm& jvm, const Arguments& arguments) {
    std::string wanted, rest;
    for (const std::string& argument : arguments.all("OPTION")) {
        for (const std::string& option : split(argument, ',')) {
            std::string& list = option == "sampling" || option == "tracing" ? wanted : rest;
            list += (list.empty() || option.empty() ? "" : ",") + option;
        }
    }
    std::string process = "process " + std::to_string(jvm.pid);
    if (!rest.empty()) {
        throw ClientError(ExitCode::Refused, "attach.present",
                          "the agent is in " + process + " already and cannot be given " +
                              printable(rest) + " any more",
                          "options count when the agent is loaded; sampling and tracing can be "
                          "switched on later");
    }
    if (wanted.empty()) {
        return;
    }
    LiveAgent agent = connectAgent(std::to_string(jvm.pid), arguments);
    bool on = (agent.status & protocol::CPU_TIMES_BIT) != 0;
    bool traces = (agent.status & protocol::CPU_COUNTS_BIT) != 0;
    if (on && traces != (wanted == "tracing")) {
        throw ClientError(ExitCode::Refused, "cpu.on",
                          std::string("CPU ") + (traces ? "tracing" : "sampling") + " is on in " +
                              process,
                          std::string("`vdk ") + (traces ? "trace" : "sample") + " stop " +
                              std::to_string(jvm.pid) + "` ends it");
    }
    if (!on) {
        agent.client.startCpuProfiling(wanted == "tracing" ? protocol::CPU_TRACING
                                                           : protocol::CPU_SAMPLING,
                                       std::nullopt, std::nullopt);
    }
}

} // namespace

LiveAgent attachedAgent(Machine& machine, const std::string& target, const Arguments& arguments) {
    Jvm jvm = machine.finder.find(target);
    const int timeoutMs = int(arguments.durationMs("--timeout", 15000));
    if (!hasAgent(machine, jvm, timeoutMs)) {
        load(machine, jvm, arguments);
        jvm = awaitMarker(machine.finder, jvm);
        checkPort(machine.processes, jvm, {});
    }
    return connectAgent(machine, jvm, timeoutMs);
}

int runAttach(Console& console, const Arguments& arguments) {
    Machine machine;
    Jvm jvm = machine.finder.find(arguments.text("TARGET"));
    bool already = hasAgent(machine, jvm, int(arguments.durationMs("--timeout", 10000)));
    if (already) {
        applyToPresent(jvm, arguments);
        console.note("the agent is in process " + std::to_string(jvm.pid) + " already");
    } else {
        load(machine, jvm, arguments);
        jvm = awaitMarker(machine.finder, jvm);
        checkPort(machine.processes, jvm, arguments.all("OPTION"));
        if (arguments.has("--remote")) {
            console.warn("the agent accepts connections from every machine that reaches this one, "
                         "and there is no password: whoever connects controls it");
        }
    }
    bool listening = jvm.isProfiled();
    if (console.json) {
        JsonDocument json(console, "vdk.attach/1");
        json.field("pid", jvm.pid).field("name", jvm.shortName());
        json.field("already", already).key("port");
        listening ? json.value(jvm.port) : json.nullValue();
        json.field("session", jvm.session);
        json.end();
        return 0;
    }
    console.out << "agent in process " << jvm.pid << " (" << printable(jvm.shortName()) << ")";
    if (listening) {
        console.out << ", port " << jvm.port << "\n";
    } else {
        console.out << ", no port yet: it was told to wait\n";
    }
    if (jvm.ownNetwork) {
        console.note("the port is in the process's own network: without root's rights " +
                     fromInside(machine.processes, jvm) + " reaches it");
    }
    return 0;
}

} // namespace vdk
