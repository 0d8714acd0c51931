#include "client/attach/JvmList.h"

#include "client/attach/Hsperf.h"
#include "client/console/Errors.h"
#include "client/console/Text.h"
#include "machine/MarkersOnSharedMemory.h"

#include <algorithm>
#include <glob.h>
#include <map>
#include <pwd.h>
#include <unistd.h>

namespace vdk {

std::vector<ProfiledMarker> MarkerSource::read() {
    std::vector<ProfiledMarker> result;
    MarkersOnSharedMemory area;
    ZVector<Marker> markers;
    if (!area.fillMarked(1, &markers)) {
        return result;
    }
    for (int i = 0; i < markers.getSize(); i++) {
        const Marker& marker = markers.get(i);
        if (marker.port < 1 || marker.port > 65535) {
            continue;
        }
        result.push_back({marker.pid, marker.port, area.getSessionName(marker.pid).c_str()});
    }
    return result;
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
    static const char* const options[] = {"-cp",
                                          "-classpath",
                                          "--class-path",
                                          "-p",
                                          "--module-path",
                                          "--upgrade-module-path",
                                          "--add-modules",
                                          "--limit-modules",
                                          "--add-exports",
                                          "--add-opens",
                                          "--add-reads",
                                          "--patch-module",
                                          "--source",
                                          "--enable-native-access",
                                          "-d",
                                          "--describe-module",
                                          "--finalization"};
    return std::find(std::begin(options), std::end(options), option) != std::end(options);
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

// The performance data files that are visible in the folder of temporary files of the target.
static std::string findHsperfFile(const ProcFs& processes, int pid, int namespacePid) {
    std::string pattern =
        processes.inTarget(pid, "/tmp/hsperfdata_*/" + std::to_string(namespacePid));
    glob_t found = {};
    std::string result;
    if (glob(pattern.c_str(), GLOB_NOSORT, nullptr, &found) == 0 && found.gl_pathc > 0) {
        result = found.gl_pathv[0];
    }
    globfree(&found);
    if (result.empty()) {
        // The target's root may not be looked into: its own process id is then ours too.
        pattern = "/tmp/hsperfdata_*/" + std::to_string(pid);
        glob_t own = {};
        if (access(processes.path(pid, "root/").c_str(), X_OK) != 0 &&
            glob(pattern.c_str(), GLOB_NOSORT, nullptr, &own) == 0 && own.gl_pathc > 0) {
            result = own.gl_pathv[0];
        }
        globfree(&own);
    }
    return result;
}

// Fills in what is known of the process; false if it is no JVM.
bool JvmFinder::describe(int pid, Jvm& jvm) {
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
    std::string file = findHsperfFile(processes, pid, status->namespacePid);
    jvm.user = userName(jvm.uid);
    size_t next = 0;
    jvm.mainName = findMainArgument(commandLine, next);
    jvm.arguments = join(
        {commandLine.begin() + long(std::min(next, commandLine.size())), commandLine.end()}, " ");
    if (auto bytes = readSmallFile(file, 1 << 20, true)) {
        if (auto values = parseHsperf(*bytes)) {
            std::string command = (*values)["sun.rt.javaCommand"];
            size_t blank = command.find(' ');
            if (!command.empty()) {
                jvm.mainName = command.substr(0, blank);
                jvm.arguments = blank == std::string::npos ? "" : command.substr(blank + 1);
            }
            jvm.javaVersion = (*values)["java.property.java.version"];
            if (jvm.javaVersion.empty()) {
                jvm.javaVersion = (*values)["java.property.java.vm.specification.version"];
            }
            jvm.vmArguments = (*values)["java.rt.vmArgs"];
        }
    }
    return true;
}

// An agent writes the process id of its own pid namespace. A JVM with that id here comes first; one
// of another namespace gets the marker only if it listens on the port: ids such as 1 are common,
// and a marker that such an agent left behind is never found dead.
static void assignMarker(const ProcFs& processes, const ProfiledMarker& marker,
                         std::vector<Jvm>& jvms) {
    Jvm* owner = nullptr;
    for (Jvm& jvm : jvms) {
        bool own = jvm.pid == marker.pid && jvm.namespacePid == marker.pid;
        if (own || (!owner && jvm.namespacePid == marker.pid &&
                    processes.listensOn(jvm.pid, marker.port))) {
            owner = &jvm;
        }
        if (own) {
            break;
        }
    }
    if (!owner) {
        return;
    }
    owner->port = marker.port;
    owner->session = marker.session;
}

std::vector<Jvm> JvmFinder::findAll() {
    std::vector<Jvm> result;
    for (int pid : processes.pids()) {
        Jvm jvm;
        if (describe(pid, jvm)) {
            result.push_back(jvm);
        }
    }
    for (const ProfiledMarker& marker : markers.read()) {
        assignMarker(processes, marker, result);
    }
    return result;
}

static std::string listOf(const std::vector<Jvm>& jvms) {
    std::string text;
    for (const Jvm& jvm : jvms) {
        text += "\n  " + std::to_string(jvm.pid) + "  " +
                printable(jvm.mainName + (jvm.arguments.empty() ? "" : " ") + jvm.arguments, 100);
    }
    return text;
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
    std::string message = "no JVM matches '" + target + "'";
    if (pid && processes.status(static_cast<int>(*pid))) {
        message = "process " + target + " is no JVM that this user can see";
    } else if (!all.empty()) {
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
