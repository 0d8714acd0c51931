#include "client/attach/Attach.h"

#include "client/agent/Connection.h"
#include "client/attach/ForeignFiles.h"
#include "client/console/Errors.h"
#include "client/console/Signals.h"
#include "client/console/Text.h"
#include "platform/Platform.h"

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <sys/un.h>
#include <unistd.h>

namespace vdk {

namespace {

[[noreturn]] void refuse(const char* word, const std::string& message,
                         const std::string& hint = {}) {
    throw ClientError(ExitCode::AttachRefused, word, message, hint);
}

const char* const StartLineHint = "start the program with the agent instead: `vdk run -- java ...`";

} // namespace

int javaMajor(const std::string& version) {
    std::vector<std::string> parts = split(version, '.');
    size_t index = parts[0] == "1" && parts.size() > 1 ? 1 : 0;
    std::string digits = parts[index].substr(0, parts[index].find_first_not_of("0123456789"));
    auto number = parseNumber(digits, 1, 1000);
    return number ? static_cast<int>(*number) : 0;
}

Attacher::Attacher(const ProcFs& processes, const Jvm& jvm, int timeoutMs)
    : processes(processes), jvm(jvm), timeoutMs(timeoutMs) {
    auto found = processes.status(jvm.pid);
    std::string name = "process " + std::to_string(jvm.pid);
    if (!found || found->state == "Z") {
        refuse("attach.gone", name + " has ended");
    }
    status = *found;
    if (geteuid() != 0 && geteuid() != status.euid) {
        refuse("attach.uid", name + " belongs to the user " + jvm.user,
               "run vdk as that user or as root, for example `sudo -u " + jvm.user + " vdk ...`");
    }
    if (status.state == "T") {
        refuse("attach.stopped", name + " is stopped",
               "`kill -CONT " + std::to_string(jvm.pid) + "` lets it go on");
    }
    if (jvm.kind == JvmKind::OpenJ9) {
        refuse("attach.openj9", name + " is an OpenJ9 JVM: its attach protocol is not supported",
               StartLineHint);
    }
    int major = javaMajor(jvm.javaVersion);
    if (major != 0 && major < 6) {
        refuse("jvm.old", name + " runs Java " + jvm.javaVersion + "; Java 6 or newer is required");
    }
    std::string arguments = " " + jvm.vmArguments + " " + join(processes.commandLine(jvm.pid), " ");
    size_t off = arguments.rfind(" -XX:+DisableAttachMechanism");
    size_t on = arguments.rfind(" -XX:-DisableAttachMechanism");
    if (off != std::string::npos && (on == std::string::npos || on < off)) {
        refuse("attach.disabled", name + " was started with -XX:+DisableAttachMechanism",
               StartLineHint);
    }
    temporary = openFolder(openRootOrOwn(processes, jvm.pid), "/tmp");
}

std::string Attacher::socketName() const {
    return ".java_pid" + std::to_string(status.namespacePid);
}

bool Attacher::socketExists() const {
    struct stat info;
    if (fstatat(temporary.get(), socketName().c_str(), &info, AT_SYMLINK_NOFOLLOW) != 0) {
        return false;
    }
    std::string file = processes.inTarget(jvm.pid, "/tmp/" + socketName());
    if (!S_ISSOCK(info.st_mode)) {
        refuse("attach.file", file + " is no socket: somebody else made it",
               "remove it, then try again");
    }
    if (!belongsTo(info, status.euid)) {
        refuse("attach.file", file + " belongs to another user than the JVM",
               "remove it, then try again");
    }
    return true;
}

// The JVM makes its socket in /tmp and nowhere else.
void Attacher::checkCanListen() const {
    struct statvfs space;
    std::string what = !temporary ? "has no folder /tmp"
                       : fstatvfs(temporary.get(), &space) == 0 && (space.f_flag & ST_RDONLY) != 0
                           ? "has a read-only /tmp"
                           : "";
    if (!what.empty()) {
        refuse("attach.file",
               "process " + std::to_string(jvm.pid) + " " + what +
                   ", where a JVM makes its attach socket: nothing can attach to it",
               StartLineHint);
    }
}

// Makes the file as nobody else's: a left-over of the JVM's user is replaced, anything else of that
// name is not touched. False and errno on failure.
static bool makeTrigger(const Descriptor& folder, const std::string& name, uid_t uid) {
    for (bool again : {true, false}) {
        Descriptor file(openat(folder.get(), name.c_str(),
                               O_CREAT | O_EXCL | O_WRONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC,
                               0660));
        struct stat info;
        if (file) {
            bool owned = fstat(file.get(), &info) == 0 && info.st_uid == uid;
            if (!owned) {
                unlinkat(folder.get(), name.c_str(), 0);
                errno = EPERM; // some mounts give files another owner
            }
            return owned;
        }
        bool isLeftOver = errno == EEXIST &&
                          fstatat(folder.get(), name.c_str(), &info, AT_SYMLINK_NOFOLLOW) == 0 &&
                          S_ISREG(info.st_mode) && info.st_uid == uid;
        if (!isLeftOver || !again || unlinkat(folder.get(), name.c_str(), 0) != 0) {
            return false;
        }
    }
    return false;
}

// The file by which the JVM tells this SIGQUIT from one that asks for a thread dump. Its owner must
// be the JVM's user; some mounts give it another one, then the folder of temporary files serves.
Attacher::Trigger Attacher::createTrigger() const {
    std::string name = ".attach_pid" + std::to_string(status.namespacePid);
    Descriptor working(
        ::open(processes.path(jvm.pid, "cwd").c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC));
    std::string errors;
    if (working && makeTrigger(working, name, status.euid)) {
        return {std::move(working), name};
    }
    errors = std::string("in its working folder: ") + strerror(errno);
    Descriptor other(dup(temporary.get()));
    if (other && makeTrigger(other, name, status.euid)) {
        return {std::move(other), name};
    }
    refuse("attach.file",
           "cannot make the trigger file " + name + " of the JVM " + errors +
               ", in its /tmp: " + strerror(errno),
           "one of the two must be writable for its user, and no other file of that name be there");
}

void Attacher::throwIfEnded() const {
    auto now = processes.status(jvm.pid);
    if (!now || now->state == "Z") {
        refuse("attach.gone", "process " + std::to_string(jvm.pid) + " has ended");
    }
}

// An uncaught SIGQUIT ends the process: a JVM that is just starting has no handler yet, and one
// with -Xrs never gets one (it listens from the start instead).
void Attacher::waitUntilQuitIsCaught() {
    for (int round = 0; round < 20; round++) {
        throwIfEnded();
        auto now = processes.status(jvm.pid);
        if ((now && now->catchesQuit) || socketExists()) {
            return;
        }
        if (!sleepUnlessInterrupted(100)) {
            throwIfInterrupted();
        }
    }
    refuse("attach.quit",
           "process " + std::to_string(jvm.pid) +
               " does not handle SIGQUIT, which would end it: it is still starting, or was started "
               "with -Xrs and does not listen",
           StartLineHint);
}

void Attacher::waitForSocket() {
    int waited = 0;
    int step = 20;
    bool sentAgain = false;
    while (!socketExists()) {
        if (waited >= timeoutMs) {
            refuse("attach.socket",
                   "the JVM did not open its attach socket within " + formatLimit(timeoutMs),
                   "it may hang, wait in a debugger, be stopped, or its folder of temporary files "
                   "was cleaned; its standard output may show a thread dump instead");
        }
        if (!sleepUnlessInterrupted(step)) {
            throwIfInterrupted();
        }
        waited += step;
        step = std::min(step + 20, 300);
        throwIfEnded();
        if (!sentAgain && waited >= timeoutMs / 2) {
            kill(jvm.pid, SIGQUIT);
            sentAgain = true;
        }
    }
}

void Attacher::open() {
    TargetCredentials credentials(status.euid, status.egid);
    if (socketExists()) {
        return;
    }
    checkCanListen();
    waitUntilQuitIsCaught();
    if (socketExists()) {
        return;
    }
    Trigger trigger = createTrigger();
    auto remove = [&] { unlinkat(trigger.folder.get(), trigger.name.c_str(), 0); };
    try {
        if (kill(jvm.pid, SIGQUIT) != 0) {
            refuse("attach.uid", std::string("cannot signal the process: ") + strerror(errno));
        }
        waitForSocket();
    } catch (...) {
        remove();
        throw;
    }
    remove();
}

// The socket is reached through what was opened, not by its name again, and must be the JVM's own.
Descriptor Attacher::connectToSocket() const {
    std::string file = processes.inTarget(jvm.pid, "/tmp/" + socketName());
    Descriptor place(
        openat(temporary.get(), socketName().c_str(), O_PATH | O_NOFOLLOW | O_CLOEXEC));
    Descriptor connected(socket(AF_UNIX, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0));
    struct stat info;
    if (!place || !connected || fstat(place.get(), &info) != 0) {
        refuse("attach.socket", "cannot connect to " + file + ": " + strerror(errno));
    }
    if (!S_ISSOCK(info.st_mode) || !belongsTo(info, status.euid)) {
        refuse("attach.file", file + " is not the JVM's socket", "remove it, then try again");
    }
    sockaddr_un address = {};
    address.sun_family = AF_UNIX;
    snprintf(address.sun_path, sizeof(address.sun_path), "/proc/self/fd/%d", place.get());
    auto dial = [&] {
        return connect(connected.get(), reinterpret_cast<sockaddr*>(&address), sizeof(address));
    };
    int result = dial();
    // The JVM serves one client at a time; a full queue is no refusal.
    for (int round = 0; result != 0 && errno == EAGAIN && round < 50; round++) {
        sleepUnlessInterrupted(100);
        throwIfInterrupted();
        result = dial();
    }
    if (result != 0) {
        int error = errno;
        refuse("attach.socket", "cannot connect to " + file + ": " + strerror(error),
               error == ECONNREFUSED || error == EACCES
                   ? "the file is left over from an ended JVM, or another user's: remove it"
                   : "");
    }
    int listener = Platform::peerProcess(connected.get());
    if (listener != 0 && listener != jvm.pid) {
        refuse("attach.file",
               file + " is the socket of process " + std::to_string(listener) +
                   ", not of process " + std::to_string(jvm.pid),
               "the two share a folder and, each in its own container, an id: " +
                   std::string(StartLineHint));
    }
    return connected;
}

std::string Attacher::exchange(const std::string& request, int limitMs) {
    TargetCredentials credentials(status.euid, status.egid);
    limitMs = limitMs > 0 ? limitMs : std::max(timeoutMs, 30000);
    Connection connection(connectToSocket().release(), limitMs);
    std::string answer;
    try {
        connection.write(request.data(), request.size());
        char buffer[4096];
        while (size_t count = connection.readSome(buffer, sizeof(buffer))) {
            answer.append(buffer, count);
            if (answer.size() > 64 << 20) {
                break;
            }
        }
    } catch (const ClientError& e) {
        throwIfEnded();
        if (e.word != "agent.timeout") {
            throw;
        }
        throw ClientError(ExitCode::TimedOut, "attach.timeout",
                          "the JVM did not finish its answer to the attach request within " +
                              formatLimit(limitMs),
                          "it may be stopped, wait in a debugger or for memory; --timeout sets the "
                          "limit");
    }
    return answer;
}

int Attacher::version() {
    if (knownVersion == 0) {
        knownVersion =
            attachVersion(parseAttachReply(exchange(attachRequestV1("getversion", {}), 0)));
    }
    return knownVersion;
}

AttachReply Attacher::execute(const std::string& command, const std::vector<std::string>& arguments,
                              int limitMs) {
    bool tooLong = arguments.size() > 3;
    for (const std::string& argument : arguments) {
        tooLong = tooLong || argument.size() > AttachV1MaxArgument;
    }
    if (tooLong && version() < 2) {
        refuse("attach.long", "an argument is longer than this JVM's attach protocol takes (" +
                                  std::to_string(AttachV1MaxArgument) + " bytes)");
    }
    return parseAttachReply(exchange(tooLong ? attachRequestV2(command, arguments)
                                             : attachRequestV1(command, arguments),
                                     limitMs));
}

} // namespace vdk
