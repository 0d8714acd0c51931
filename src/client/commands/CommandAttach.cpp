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
        hint = "the target's /tmp does not allow programs (noexec): put the library where the "
               "target can open it and name it with --agent";
    } else if (says("No such file") || says("cannot open shared object") ||
               says("Permission denied") || says("was not loaded")) {
        word = "agent.unreachable";
        hint = "the target must be able to open " + library +
               ": check the path, its folders' permissions and the library's C library";
    }
    throw ClientError(ExitCode::AttachRefused, word,
                      "the JVM did not load the agent: " + printable(text, 1000), hint);
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

// Waits for the agent's marker, which is there when the JVM answered, unless the agent was told to
// wait. The JVM with its port then; without, if none comes.
Jvm waitForMarker(JvmFinder& finder, const Jvm& jvm) {
    for (int round = 0; round < 20; round++) {
        for (const Jvm& found : finder.findAll()) {
            if (found.pid == jvm.pid && found.isProfiled()) {
                return found;
            }
        }
        if (!sleepUnlessInterrupted(150)) {
            throwIfInterrupted();
        }
    }
    return jvm;
}

void load(Machine& machine, const Jvm& jvm, const Arguments& arguments) {
    std::string library = findAgentLibrary(arguments.text("--agent"), ExitCode::AttachRefused);
    Attacher attacher(machine.processes, jvm, int(arguments.durationMs("--timeout", 10000)));
    checkTargetLibc(machine.processes, jvm.pid);
    AttachFiles files(machine.processes, attacher.target());
    AgentOptionChoices choices;
    choices.attach = true;
    choices.remote = arguments.has("--remote");
    choices.verbose = arguments.has("--banner");
    choices.generations = arguments.has("--generations");
    choices.oomDump = arguments.has("--oom-dump");
    choices.tmpDir = files.directory();
    char folder[4096];
    choices.workingDir = getcwd(folder, sizeof(folder)) ? folder : "";
    std::string options = composeAgentOptions(arguments.all("OPTION"), choices);
    std::string path = files.provideLibrary(library);
    attacher.open();
    LoadOutcome outcome = parseLoadReply(
        attacher.execute("load", {path, "true", passOptions(attacher, files, options)}));
    if (!outcome.loaded) {
        failLoad(outcome, path);
    }
    if (outcome.returnCode != 0) {
        AgentStartFailure failure = explainAgentResult(outcome.returnCode);
        throw ClientError(ExitCode::AgentFailed, "agent.start", failure.message, failure.hint);
    }
}

} // namespace

int runAttach(Console& console, const Arguments& arguments) {
    Machine machine;
    Jvm jvm = machine.finder.find(arguments.text("TARGET"));
    bool already = jvm.isProfiled();
    if (already) {
        console.note("the agent is in process " + std::to_string(jvm.pid) +
                     " already; its options stay as they are");
    } else {
        load(machine, jvm, arguments);
        jvm = waitForMarker(machine.finder, jvm);
    }
    bool listening = jvm.isProfiled();
    if (console.json) {
        JsonWriter json(console.out, true);
        beginDocument(json, "vdk.attach/1").field("pid", jvm.pid).field("name", jvm.shortName());
        json.field("already", already).key("port");
        listening ? json.value(jvm.port) : json.nullValue();
        json.field("session", jvm.session).endObject();
        console.out << "\n";
        return 0;
    }
    console.out << "agent in process " << jvm.pid << " (" << printable(jvm.shortName()) << ")";
    if (listening) {
        console.out << ", port " << jvm.port << "\n";
    } else {
        console.out << ", no port yet\n";
    }
    if (!listening) {
        console.note("the agent has told no port: it may be waiting (delay=-1), or this process "
                     "sees other shared memory than the target");
    }
    return 0;
}

} // namespace vdk
