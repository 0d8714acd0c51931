// `vdk doctor`: whether attach and each kind of recording will work, and why not. Looks, and
// touches nothing of the JVM's.
#include "client/agent/Protocol.h"
#include "client/attach/AgentLibraryFile.h"
#include "client/attach/Attach.h"
#include "client/attach/ForeignFiles.h"
#include "client/attach/Namespaces.h"
#include "client/attach/TargetLibc.h"
#include "client/commands/Commands.h"
#include "client/commands/Sources.h"
#include "client/console/Errors.h"
#include "client/console/Text.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <unistd.h>

namespace vdk {

namespace {

struct Finding {
    enum State { Good, Warning, Bad };
    std::string what;
    State state = Good;
    std::string word, message, hint;
};

const char* nameOf(Finding::State state) {
    return state == Finding::Good ? "ok" : state == Finding::Warning ? "note" : "no";
}

struct Recording {
    const char* name;
    bool isPossible;
    std::string message;
};

constexpr int64_t NeededBytes = 32 << 20; // the library's copy, and a snapshot

class Doctor {
public:
    Doctor(const Machine& machine, const Jvm& jvm, const Arguments& arguments)
        : machine(machine), jvm(jvm), arguments(arguments), major(javaMajor(jvm.javaVersion)) {}

    void examine() {
        check("rights and options", "attach is allowed",
              [&] { Attacher attacher(machine.processes, jvm); });
        if (isBad()) {
            return; // the rest may not be looked at
        }
        status = machine.processes.status(jvm.pid).value_or(ProcessStatus());
        checkAgent();
        if (!hasAgent) {
            checkDynamicLoading();
            checkSignal();
            check("C library", "the agent runs with it",
                  [&] { checkTargetLibc(machine.processes, jvm.pid); });
            check("agent library", "it is there",
                  [&] { findAgentLibrary(arguments.text("--agent"), ExitCode::AttachRefused); });
            checkFolders();
        }
        checkReach();
        listRecordings();
    }

    bool isBad() const {
        for (const Finding& finding : findings) {
            if (finding.state == Finding::Bad) {
                return true;
            }
        }
        return false;
    }

    std::vector<Finding> findings;
    std::vector<Recording> recordings;

private:
    void add(Finding::State state, const char* what, const std::string& message,
             const std::string& word = "", const std::string& hint = "") {
        findings.push_back({what, state, word, message, hint});
    }

    template <typename Action>
    void check(const char* what, const char* good, Action action) {
        try {
            action();
            add(Finding::Good, what, good);
        } catch (const ClientError& error) {
            if (error.code == ExitCode::Aborted) {
                throw;
            }
            add(Finding::Bad, what, error.what(), error.word, error.hint);
        }
    }

    void checkAgent() {
        if (!jvm.isProfiled()) {
            return;
        }
        check("agent", "it is loaded and answers", [&] {
            LiveAgent agent =
                connectAgent(machine, jvm, int(arguments.durationMs("--timeout", 15000)));
            capabilities = agent.info.capabilities;
            hasAgent = true;
        });
    }

    bool isSwitched(const std::string& flag, bool on) const {
        const std::string all =
            " " + jvm.vmArguments + " " + join(machine.processes.commandLine(jvm.pid), " ");
        const size_t yes = all.rfind(" -XX:+" + flag), no = all.rfind(" -XX:-" + flag);
        const size_t wanted = on ? yes : no, other = on ? no : yes;
        return wanted != std::string::npos && (other == std::string::npos || other < wanted);
    }

    void checkDynamicLoading() {
        const char* what = "loading of agents";
        if (isSwitched("EnableDynamicAgentLoading", false)) {
            add(Finding::Bad, what, "the JVM was started with -XX:-EnableDynamicAgentLoading",
                "attach.dynamic", "start the program with the agent: `vdk run -- java ...`");
        } else if (major >= 21 && !isSwitched("EnableDynamicAgentLoading", true)) {
            add(Finding::Warning, what,
                "the JVM will print a warning: it was started without "
                "-XX:+EnableDynamicAgentLoading");
        } else {
            add(Finding::Good, what, "the JVM allows it");
        }
    }

    void checkSignal() {
        struct stat info;
        const Descriptor folder = openFolder(openRootOrOwn(machine.processes, jvm.pid), "/tmp");
        const std::string name = ".java_pid" + std::to_string(status.namespacePid);
        const bool listens =
            folder && fstatat(folder.get(), name.c_str(), &info, AT_SYMLINK_NOFOLLOW) == 0;
        if (listens && (!S_ISSOCK(info.st_mode) || !belongsTo(info, status.euid))) {
            add(Finding::Bad, "attach socket", "/tmp/" + name + " is not the JVM's", "attach.file",
                "remove it");
        } else if (!listens && !status.catchesQuit) {
            add(Finding::Bad, "attach socket",
                "the JVM does not handle SIGQUIT, which would end it: it is still starting, or was "
                "started with -Xrs",
                "attach.quit", "start the program with the agent: `vdk run -- java ...`");
        } else {
            add(Finding::Good, "attach socket",
                listens ? "the JVM listens" : "the JVM opens it when it is asked");
        }
    }

    // Where the library's copy and the agent's own files go.
    void checkFolders() {
        const Descriptor root = openRootOrOwn(machine.processes, jvm.pid);
        const TargetCredentials credentials(status.euid, status.egid);
        const bool needsCopy = !machine.processes.sharesFiles(jvm.pid);
        std::string passed;
        for (const char* base : {"/tmp", "/var/tmp", "/dev/shm"}) {
            const Descriptor folder = openFolder(root, base);
            struct statvfs space;
            if (!folder || fstatvfs(folder.get(), &space) != 0 || (space.f_flag & ST_RDONLY) != 0 ||
                faccessat(folder.get(), ".", W_OK | X_OK, AT_EACCESS) != 0) {
                passed += (passed.empty() ? "" : ", ") + std::string(base) + " (not writable)";
                continue;
            }
            const int64_t free = int64_t(space.f_bavail) * int64_t(space.f_frsize);
            if (needsCopy && (space.f_flag & ST_NOEXEC) != 0) {
                passed += (passed.empty() ? "" : ", ") + std::string(base) + " (no programs)";
                continue;
            }
            if (free < NeededBytes) {
                passed += (passed.empty() ? "" : ", ") + std::string(base) + " (" +
                          formatBytes(free) + " free)";
                continue;
            }
            add(Finding::Good, "folders",
                std::string(base) + " of the JVM, " + formatBytes(free) + " free");
            return;
        }
        add(Finding::Bad, "folders", "the JVM's user has none for the agent's files: " + passed,
            needsCopy ? "agent.noexec" : "attach.file",
            "start the program with the agent: `vdk run -- java ...`");
    }

    void checkReach() {
        const bool isOwnNetwork = machine.processes.namespaceId(jvm.pid, "net") !=
                                  machine.processes.ownNamespaceId("net");
        if (isOwnNetwork && geteuid() != 0) {
            add(Finding::Bad, "network", "the process has a network of its own", "target.network",
                "run vdk as root, or " + fromInside(machine.processes, jvm));
        } else if (!jvm.isProfiled() && jvm.markersHidden) {
            add(Finding::Bad, "markers", "the process has shared memory of its own",
                "target.hidden", "run vdk as root, or " + fromInside(machine.processes, jvm));
        } else {
            add(Finding::Good, "network", isOwnNetwork ? "entered as root" : "shared");
        }
    }

    void listRecordings() {
        const bool works = !isBad();
        const auto able = [&](int64_t bit) { return works && (!hasAgent || capabilities & bit); };
        const auto text = [&](bool isPossible, const char* how) {
            return isPossible ? how
                   : !works   ? "the agent cannot be loaded"
                              : "the agent was started without it";
        };
        const auto add = [&](const char* name, bool isPossible, const std::string& message) {
            recordings.push_back({name, isPossible, message});
        };
        const bool traces = able(0x40), allocates = able(0x100);
        add("--sample", works, text(works, "CPU times, without rewritten classes"));
        add("--wall", works, text(works, "elapsed times of all threads or some"));
        add("--trace", traces,
            text(traces, hasAgent && !(capabilities & protocol::ATTACHED_BIT)
                             ? "all calls"
                             : "all calls but those of natives, which take a start with the "
                               "agent; name classes by --only"));
        const bool samplesObjects = works && (major == 0 || major >= 11);
        add("--alloc", samplesObjects,
            samplesObjects || !works ? text(samplesObjects, "estimates by samples of the JVM")
                                     : "the JVM samples objects from 11 on; `vdk alloc start "
                                       "--each 10` counts them exactly");
        add("alloc --each", allocates, text(allocates, "exact, by rewritten classes"));
        add("--locks", works, text(works, "waits for monitors and locks"));
        add("--exceptions", works, text(works, "by inserted calls"));
        const bool ofHeap = works;
        add("heap capture", ofHeap, text(ofHeap, "the JVM stands still meanwhile"));
    }

    const Machine& machine;
    const Jvm& jvm;
    const Arguments& arguments;
    const int major;
    ProcessStatus status;
    int64_t capabilities = 0;
    bool hasAgent = false;
};

void writeJson(Console& console, const Jvm& jvm, const Doctor& doctor) {
    JsonDocument json(console, "vdk.doctor/1");
    json.field("pid", jvm.pid).field("name", jvm.shortName()).field("java", jvm.javaVersion);
    json.field("user", jvm.user).field("good", !doctor.isBad()).key("checks").beginArray();
    for (const Finding& finding : doctor.findings) {
        json.beginObject().field("what", finding.what).field("result", nameOf(finding.state));
        json.key("word");
        finding.word.empty() ? json.nullValue() : json.value(finding.word);
        json.field("message", finding.message).field("hint", finding.hint).endObject();
    }
    json.endArray().key("recordings").beginArray();
    for (const Recording& recording : doctor.recordings) {
        json.beginObject().field("name", recording.name).field("possible", recording.isPossible);
        json.field("message", recording.message).endObject();
    }
    json.endArray();
    json.end();
}

void print(Console& console, const Jvm& jvm, const Doctor& doctor) {
    console.out << "process " << jvm.pid << " (" << printable(jvm.shortName()) << "), Java "
                << printable(jvm.javaVersion.empty() ? "unknown" : jvm.javaVersion) << ", user "
                << printable(jvm.user) << "\n";
    for (const Finding& finding : doctor.findings) {
        console.out << "  "
                    << (finding.state == Finding::Warning ? "note"
                        : finding.state == Finding::Good  ? "ok  "
                                                          : "no  ")
                    << "  " << finding.what << ": " << printable(finding.message)
                    << (finding.word.empty() ? "" : " (" + finding.word + ")") << "\n";
        if (!finding.hint.empty()) {
            console.out << "        " << printable(finding.hint) << "\n";
        }
    }
    for (const Recording& recording : doctor.recordings) {
        console.out << "  " << (recording.isPossible ? "ok  " : "no  ") << "  " << recording.name
                    << ": " << recording.message << "\n";
    }
}

} // namespace

int runDoctor(Console& console, const Arguments& arguments) {
    Machine machine;
    const Jvm jvm = machine.finder.find(arguments.text("TARGET"));
    Doctor doctor(machine, jvm, arguments);
    doctor.examine();
    console.json ? writeJson(console, jvm, doctor) : print(console, jvm, doctor);
    return doctor.isBad() ? int(ExitCode::Refused) : 0;
}

} // namespace vdk
