#include "client/attach/Attach.h"

#include "client/agent/Connection.h"
#include "client/console/Errors.h"
#include "client/console/Signals.h"
#include "client/console/Text.h"

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstring>
#include <fcntl.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

namespace vdk {

namespace {

[[noreturn]] void refuse(const char* word, const std::string& message,
                         const std::string& hint = {}) {
    throw ClientError(ExitCode::AttachRefused, word, message, hint);
}

const char* const StartLineHint = "start the program with the agent instead: `vdk run -- java ...`";

// Major Java release of a version text ("1.8.0_292", "17.0.15", "25"); 0 if there is none.
int javaMajor(const std::string& version) {
    std::vector<std::string> parts = split(version, '.');
    size_t index = parts[0] == "1" && parts.size() > 1 ? 1 : 0;
    std::string digits = parts[index].substr(0, parts[index].find_first_not_of("0123456789"));
    auto number = parseNumber(digits, 1, 1000);
    return number ? static_cast<int>(*number) : 0;
}

} // namespace

TargetCredentials::TargetCredentials(uid_t uid, gid_t gid) {
    if (geteuid() != 0 || (uid == 0 && gid == getegid())) {
        return;
    }
    if (setegid(gid) != 0 || seteuid(uid) != 0) {
        refuse("attach.uid", std::string("cannot become the target's user: ") + strerror(errno));
    }
    switched = true;
}

TargetCredentials::~TargetCredentials() {
    if (switched && (seteuid(0) != 0 || setegid(getgid()) != 0)) {
        _exit(static_cast<int>(ExitCode::AttachRefused));
    }
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
               "run vdk as that user or as root, for example `sudo -u " + jvm.user +
                   " vdk attach " + std::to_string(jvm.pid) + "`");
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
}

std::string Attacher::socketPath() const {
    return processes.inTarget(jvm.pid, "/tmp/.java_pid" + std::to_string(status.namespacePid));
}

bool Attacher::socketExists() const {
    struct stat info;
    if (lstat(socketPath().c_str(), &info) != 0) {
        return false;
    }
    if (!S_ISSOCK(info.st_mode)) {
        refuse("attach.file", socketPath() + " is no socket: somebody else made it",
               "remove it, then try again");
    }
    if (info.st_uid != status.euid && info.st_uid != 0) {
        refuse("attach.file", socketPath() + " belongs to another user than the JVM",
               "remove it, then try again");
    }
    return true;
}

// The file by which the JVM tells this SIGQUIT from one that asks for a thread dump. Its owner must
// be the JVM's user; some mounts give it another one, then the folder of temporary files serves.
std::string Attacher::createTrigger() const {
    std::string name = ".attach_pid" + std::to_string(status.namespacePid);
    std::string lastError;
    for (const std::string& path :
         {processes.path(jvm.pid, "cwd/" + name), processes.inTarget(jvm.pid, "/tmp/" + name)}) {
        int descriptor = ::open(path.c_str(), O_CREAT | O_WRONLY | O_NOFOLLOW | O_CLOEXEC, 0660);
        if (descriptor < 0) {
            lastError = path + ": " + strerror(errno);
            continue;
        }
        struct stat info;
        bool owned = fstat(descriptor, &info) == 0 && info.st_uid == status.euid;
        close(descriptor);
        if (owned) {
            return path;
        }
        unlink(path.c_str());
        lastError = path + " gets another owner than the JVM";
    }
    refuse("attach.file", "cannot make the trigger file " + lastError,
           "the JVM's working folder or its /tmp must be writable for its user");
}

// An uncaught SIGQUIT ends the process: a JVM that is just starting has no handler yet, and one
// with -Xrs never gets one (it listens from the start instead).
void Attacher::waitUntilQuitIsCaught() {
    for (int round = 0; round < 20; round++) {
        auto now = processes.status(jvm.pid);
        if (!now) {
            refuse("attach.gone", "process " + std::to_string(jvm.pid) + " has ended");
        }
        if (now->catchesQuit || socketExists()) {
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
        if (!processes.status(jvm.pid)) {
            refuse("attach.gone", "process " + std::to_string(jvm.pid) + " has ended");
        }
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
    waitUntilQuitIsCaught();
    if (socketExists()) {
        return;
    }
    std::string trigger = createTrigger();
    try {
        if (kill(jvm.pid, SIGQUIT) != 0) {
            refuse("attach.uid", std::string("cannot signal the process: ") + strerror(errno));
        }
        waitForSocket();
    } catch (...) {
        unlink(trigger.c_str());
        throw;
    }
    unlink(trigger.c_str());
}

std::string Attacher::exchange(const std::string& request) {
    TargetCredentials credentials(status.euid, status.egid);
    int descriptor = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    if (descriptor < 0) {
        refuse("attach.socket", std::string("no socket: ") + strerror(errno));
    }
    Connection connection(descriptor, std::max(timeoutMs, 30000));
    sockaddr_un address = {};
    address.sun_family = AF_UNIX;
    std::string path = socketPath();
    if (path.size() >= sizeof(address.sun_path)) {
        refuse("attach.socket", "the path is too long: " + path);
    }
    memcpy(address.sun_path, path.c_str(), path.size());
    int result = connect(descriptor, reinterpret_cast<sockaddr*>(&address), sizeof(address));
    // The JVM serves one client at a time; a full queue is no refusal.
    for (int round = 0; result != 0 && errno == EAGAIN && round < 50; round++) {
        sleepUnlessInterrupted(100);
        throwIfInterrupted();
        result = connect(descriptor, reinterpret_cast<sockaddr*>(&address), sizeof(address));
    }
    if (result != 0) {
        int error = errno;
        refuse("attach.socket", "cannot connect to " + path + ": " + strerror(error),
               error == ECONNREFUSED ? "the file is left over from an ended JVM: remove it" : "");
    }
    connection.write(request.data(), request.size());
    std::string answer;
    char buffer[4096];
    while (size_t count = connection.readSome(buffer, sizeof(buffer))) {
        answer.append(buffer, count);
        if (answer.size() > 64 << 20) {
            break;
        }
    }
    return answer;
}

int Attacher::version() {
    if (knownVersion == 0) {
        knownVersion = attachVersion(parseAttachReply(exchange(attachRequestV1("getversion", {}))));
    }
    return knownVersion;
}

AttachReply Attacher::execute(const std::string& command,
                              const std::vector<std::string>& arguments) {
    bool tooLong = arguments.size() > 3;
    for (const std::string& argument : arguments) {
        tooLong = tooLong || argument.size() > AttachV1MaxArgument;
    }
    if (tooLong && version() < 2) {
        refuse("attach.long", "an argument is longer than this JVM's attach protocol takes (" +
                                  std::to_string(AttachV1MaxArgument) + " bytes)");
    }
    return parseAttachReply(exchange(tooLong ? attachRequestV2(command, arguments)
                                             : attachRequestV1(command, arguments)));
}

} // namespace vdk
