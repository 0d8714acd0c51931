#include "client/attach/JvmList.h"

#include "client/attach/Hsperf.h"
#include "client/attach/Namespaces.h"
#include "client/console/Errors.h"
#include "client/console/Text.h"
#include "core/ground/SessionName.h"
#include "machine/MarkersOnSharedMemory.h"

#include <algorithm>
#include <fcntl.h>
#include <map>
#include <pwd.h>
#include <unistd.h>

namespace vdk {

std::vector<ProfiledMarker> MarkerSource::read() {
    std::vector<ProfiledMarker> result;
    ZVector<NamedMarker> found;
    readMarkers(1, &found);
    for (int i = 0; i < found.getSize(); i++) {
        const Marker& marker = found[i].marker;
        result.push_back(
            {marker.pid, marker.port, std::string(found[i].sessionName), marker.pidNamespace});
    }
    return result;
}

std::optional<std::vector<ProfiledMarker>> MarkerSource::readIn(const Descriptor& ipcNamespace) {
    NamespaceVisit visit("ipc", ipcNamespace);
    if (!visit.succeeded()) {
        return std::nullopt;
    }
    return read();
}

std::string Jvm::shortName() const {
    if (mainName.empty()) {
        return session;
    }
    if (endsWith(mainName, ".jar")) {
        return mainName.substr(mainName.rfind('/') + 1);
    }
    std::string name = mainName.substr(mainName.rfind('/') + 1); // module/class
    return name.substr(name.rfind('.') + 1);
}

// Options of the java launcher whose value is the next argument.
static bool takesValue(const std::string& option) {
    static const char* const others[] = {"-d", "--describe-module", "--finalization"};
    return isOptionWithValue(option.c_str()) ||
           std::find(std::begin(others), std::end(others), option) != std::end(others);
}

std::string findMainArgument(const std::vector<std::string>& commandLine, size_t& next) {
    for (size_t i = 1; i < commandLine.size(); i++) {
        const std::string& argument = commandLine[i];
        bool named = argument == "-jar" || argument == "-m" || argument == "--module";
        if (named && i + 1 < commandLine.size()) {
            next = i + 2;
            return commandLine[i + 1];
        }
        if (takesValue(argument)) {
            i++;
        } else if (!startsWith(argument, "-") && !startsWith(argument, "@")) {
            next = i + 1;
            return argument;
        }
    }
    next = commandLine.size();
    return {};
}

static std::string userName(long uid) {
    if (passwd* entry = getpwuid(static_cast<uid_t>(uid))) {
        return entry->pw_name;
    }
    return std::to_string(uid);
}

// Fills in what is known of the process; false if it is no JVM.
bool JvmFinder::describe(int pid, Jvm& jvm, bool usePerformanceData) {
    auto status = processes.status(pid);
    if (!status || status->state == "Z") {
        return false;
    }
    jvm.pid = pid;
    jvm.namespacePid = status->namespacePid;
    jvm.uid = status->euid;
    jvm.kind = processes.jvmKind(pid);
    std::vector<std::string> commandLine = processes.commandLine(pid);
    if (jvm.kind == JvmKind::None) {
        // Where the map may not be read, the launcher's name must do.
        if (processes.canInspect(pid) || commandLine.empty() || !endsWith(commandLine[0], "java")) {
            return false;
        }
        jvm.kind = JvmKind::HotSpot;
    }
    jvm.user = userName(jvm.uid);
    size_t next = 0;
    jvm.mainName = findMainArgument(commandLine, next);
    jvm.arguments = join(
        {commandLine.begin() + long(std::min(next, commandLine.size())), commandLine.end()}, " ");
    if (!usePerformanceData) {
        return true;
    }
    PerformanceData data = readHsperf(processes, *status, jvm.user);
    std::map<std::string, std::string>& values = data.values;
    jvm.dataFile = data.file;
    std::string command = values["sun.rt.javaCommand"];
    size_t blank = command.find(' ');
    if (!command.empty()) {
        jvm.mainName = command.substr(0, blank);
        jvm.arguments = blank == std::string::npos ? "" : command.substr(blank + 1);
    }
    jvm.javaVersion = values["java.property.java.version"];
    if (jvm.javaVersion.empty()) {
        jvm.javaVersion = values["java.property.java.vm.specification.version"];
    }
    jvm.vmArguments = values["java.rt.vmArgs"];
    return true;
}

// The marker has the process's id, in its pid namespace if the marker says which one that is.
static bool isOf(const ProcFs& processes, const ProfiledMarker& marker, const Jvm& jvm) {
    if (jvm.namespacePid != marker.pid) {
        return false;
    }
    unsigned long own = marker.pidNamespace != 0 ? processes.namespaceId(jvm.pid, "pid") : 0;
    return own == 0 || own == marker.pidNamespace;
}

// An agent writes the process id of its own pid namespace, where ids such as 1 are common, and
// anybody may write anything: a marker counts only for a process that listens on its port.
void JvmFinder::assignMarkers(const std::vector<Jvm*>& jvms,
                              const std::vector<ProfiledMarker>& found) {
    for (const ProfiledMarker& marker : found) {
        std::vector<Jvm*> owners;
        for (Jvm* jvm : jvms) {
            auto status = isOf(processes, marker, *jvm) ? processes.status(jvm->pid)
                                                        : std::optional<ProcessStatus>();
            Listening listening = status ? processes.listening(*status, marker.port) : Listening();
            if (listening) {
                jvm->port = marker.port;
                jvm->host = listening.host;
                jvm->ownNetwork = listening.ownNetwork;
                owners.push_back(jvm);
            }
        }
        // Agents of other versions with one id share one record, and its name is that of the last.
        if (owners.size() == 1) {
            owners.front()->session = marker.session;
        }
    }
}

void JvmFinder::assignMarkers(std::vector<Jvm>& jvms) {
    unsigned long own = processes.ownNamespaceId("ipc");
    std::map<unsigned long, std::vector<Jvm*>> groups;
    for (Jvm& jvm : jvms) {
        unsigned long id = processes.namespaceId(jvm.pid, "ipc");
        groups[id == 0 ? own : id].push_back(&jvm);
    }
    for (const auto& [id, group] : groups) {
        if (id == own) {
            assignMarkers(group, markers.read());
            continue;
        }
        std::string path = processes.path(group.front()->pid, "ns/ipc");
        auto found = markers.readIn(Descriptor(open(path.c_str(), O_RDONLY | O_CLOEXEC)));
        for (Jvm* jvm : group) {
            jvm->markersHidden = !found;
        }
        assignMarkers(group, found.value_or(std::vector<ProfiledMarker>()));
    }
}

// The ports where agents listen that were not told otherwise.
static constexpr int FirstAgentPort = 10001, LastAgentPort = 10010;

// Only agents' usual ports are asked, and one that stands on the command line: whatever else the
// application listens on is none of ours to talk to.
void JvmFinder::askPorts(Jvm& jvm) {
    auto status = processes.status(jvm.pid);
    std::vector<int> ports;
    std::string arguments = join(processes.commandLine(jvm.pid), ",");
    size_t at = arguments.find(AgentLibraryName);
    size_t option = at == std::string::npos ? at : arguments.find("port=", at);
    if (option != std::string::npos) {
        size_t end = arguments.find(',', option);
        auto port = parseNumber(arguments.substr(option + 5, end - option - 5), 1, 65535);
        ports.push_back(int(port.value_or(FirstAgentPort)));
    }
    for (int port = FirstAgentPort; port <= LastAgentPort; port++) {
        ports.push_back(port);
    }
    for (size_t i = 0; status && i < ports.size() && !jvm.isProfiled(); i++) {
        Listening listening = processes.listening(*status, ports[i]);
        if (!listening) {
            continue;
        }
        Jvm asked = jvm;
        asked.port = ports[i];
        asked.host = listening.host;
        asked.ownNetwork = listening.ownNetwork;
        auto [answer, isNew] = answers.try_emplace({jvm.pid, asked.port});
        if (isNew) {
            answer->second = asker(asked);
        }
        if (answer->second) {
            asked.session = *answer->second;
            jvm = asked;
        }
    }
}

void JvmFinder::findUnmarked(std::vector<Jvm>& jvms) {
    for (Jvm& jvm : jvms) {
        bool mayAsk = geteuid() == 0 || long(geteuid()) == jvm.uid;
        if (asker && mayAsk && !jvm.isProfiled() && processes.mapsAgent(jvm.pid)) {
            askPorts(jvm);
        }
    }
}

std::vector<Jvm> JvmFinder::findAll() {
    std::vector<Jvm> result;
    for (int pid : processes.pids()) {
        Jvm jvm;
        if (describe(pid, jvm)) {
            result.push_back(jvm);
        }
    }
    // In containers that share a folder for temporary files, JVMs of one id overwrite each other's.
    std::map<unsigned long, int> users;
    for (const Jvm& jvm : result) {
        users[jvm.dataFile]++;
    }
    for (Jvm& jvm : result) {
        if (jvm.dataFile != 0 && users[jvm.dataFile] > 1) {
            Jvm plain;
            jvm = describe(jvm.pid, plain, false) ? plain : jvm;
        }
    }
    assignMarkers(result);
    findUnmarked(result);
    return result;
}

std::optional<Jvm> JvmFinder::look(int pid) {
    std::vector<Jvm> one(1);
    if (!describe(pid, one.front())) {
        return std::nullopt;
    }
    assignMarkers(one);
    findUnmarked(one);
    return one.front();
}

std::string fromInside(const ProcFs& processes, const Jvm& jvm) {
    unsigned long users = processes.namespaceId(jvm.pid, "user");
    bool sameUsers = users == 0 || users == processes.ownNamespaceId("user");
    return "`nsenter -t " + std::to_string(jvm.pid) +
           (sameUsers ? "" : " -U --preserve-credentials") +
           (jvm.isProfiled() ? " -n vdk status :" + std::to_string(jvm.port) : " -n -i vdk list") +
           "`";
}

static std::string listOf(const std::vector<Jvm>& jvms) {
    std::string text;
    for (const Jvm& jvm : jvms) {
        text += "\n  " + std::to_string(jvm.pid) + "  " +
                printable(jvm.mainName + (jvm.arguments.empty() ? "" : " ") + jvm.arguments, 100);
    }
    return text;
}

// Why a process that is there counts as no JVM.
static ClientError noJvm(const ProcFs& processes, const ProcessStatus& status) {
    std::string process = "process " + std::to_string(status.pid);
    if (status.state == "Z") {
        return ClientError(ExitCode::NoTarget, "target.none", process + " has ended");
    }
    std::vector<std::string> commandLine = processes.commandLine(status.pid);
    process += " (" + (commandLine.empty() ? "" : printable(commandLine[0], 100) + ", ") + "user " +
               userName(status.euid) + ")";
    if (processes.canInspect(status.pid)) {
        return ClientError(ExitCode::NoTarget, "target.none",
                           process + " is no JVM: it has loaded no JVM's library",
                           "`vdk list` shows the JVMs of this machine");
    }
    bool mayHelp = geteuid() != 0 && geteuid() != status.euid;
    return ClientError(ExitCode::NoTarget, "target.none",
                       process + " may not be looked into from here, and its command is not java",
                       mayHelp ? "run vdk as that user or as root" : "");
}

Jvm JvmFinder::find(const std::string& target) {
    std::vector<Jvm> all = findAll();
    std::vector<Jvm> matching;
    auto pid = parseNumber(target, 1, INT32_MAX);
    for (const Jvm& jvm : all) {
        bool matches = pid ? jvm.pid == *pid
                           : containsIgnoringCase(jvm.mainName, target) ||
                                 containsIgnoringCase(jvm.session, target);
        if (matches && !target.empty()) {
            matching.push_back(jvm);
        }
    }
    if (matching.size() == 1) {
        return matching.front();
    }
    if (matching.size() > 1) {
        throw ClientError(ExitCode::NoTarget, "target.several",
                          "several JVMs match '" + target + "':" + listOf(matching),
                          "name one by its process id");
    }
    if (auto status = pid ? processes.status(int(*pid)) : std::nullopt) {
        throw noJvm(processes, *status);
    }
    std::string message = "no JVM matches '" + target + "'";
    if (!all.empty()) {
        message += "; there are:" + listOf(all);
    }
    throw ClientError(ExitCode::NoTarget, "target.none", message,
                      "`vdk list` shows the JVMs of this machine");
}

bool parseEndpoint(const std::string& text, Endpoint& endpoint) {
    size_t colon = text.rfind(':');
    if (colon == std::string::npos) {
        return false;
    }
    auto port = parseNumber(std::string_view(text).substr(colon + 1), 1, 65535);
    if (!port) {
        return false;
    }
    endpoint.port = static_cast<int>(*port);
    bool bracketed = colon > 2 && text[0] == '[' && text[colon - 1] == ']';
    if (bracketed) {
        endpoint.host = text.substr(1, colon - 2);
    } else if (colon > 0) {
        endpoint.host = text.substr(0, colon);
    }
    return true;
}

} // namespace vdk
