#include "client/fleet/Subprocess.h"

#include "client/console/Descriptor.h"
#include "client/console/Errors.h"
#include "client/console/Signals.h"

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstring>
#include <fcntl.h>
#include <poll.h>
#include <sys/wait.h>
#include <unistd.h>

namespace vdk {

namespace {

using Clock = std::chrono::steady_clock;

constexpr int SecretDescriptor = 3;
constexpr int WakeUpMs = 200;

struct Pipe {
    Pipe() {
        int ends[2];
        if (pipe2(ends, O_CLOEXEC) != 0) {
            throw ClientError(ExitCode::CannotRun, "run.exec",
                              std::string("cannot make a pipe: ") + strerror(errno));
        }
        readEnd = Descriptor(ends[0]);
        writeEnd = Descriptor(ends[1]);
    }
    Descriptor readEnd, writeEnd;
};

[[noreturn]] void become(const std::vector<std::string>& command, const Pipe& input,
                         const Pipe& output, const Pipe& errors, const Pipe& secret,
                         const Pipe& failure) {
    restoreSignalHandlers();
    // None of the ends is in the way of those below: the pipes were made in this order.
    const int failed = fcntl(failure.writeEnd.get(), F_DUPFD_CLOEXEC, 16);
    const int hidden = fcntl(secret.readEnd.get(), F_DUPFD_CLOEXEC, 16);
    dup2(input.readEnd.get(), STDIN_FILENO);
    dup2(output.writeEnd.get(), STDOUT_FILENO);
    dup2(errors.writeEnd.get(), STDERR_FILENO);
    dup2(hidden, SecretDescriptor);
    std::vector<char*> pointers;
    for (const std::string& word : command) {
        pointers.push_back(const_cast<char*>(word.c_str()));
    }
    pointers.push_back(nullptr);
    execvp(pointers[0], pointers.data());
    const int error = errno;
    const ssize_t written = write(failed, &error, sizeof(error));
    _exit(written == sizeof(error) ? 127 : 126);
}

// Ends the process, whatever becomes of this one's wait for it.
class Child {
public:
    explicit Child(pid_t pid) : pid(pid) {}
    ~Child() {
        if (pid > 0) {
            kill(pid, SIGKILL);
            waitpid(pid, nullptr, 0);
        }
    }
    Child(const Child&) = delete;
    Child& operator=(const Child&) = delete;

    int finish() {
        int status = 0;
        while (waitpid(pid, &status, 0) < 0 && errno == EINTR) {
        }
        pid = -1;
        return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
    }
    void end() const { kill(pid, SIGKILL); }

private:
    pid_t pid;
};

void throwIfNotStarted(Pipe& failure, const std::string& program) {
    failure.writeEnd = Descriptor();
    int error = 0;
    ssize_t got;
    do {
        got = read(failure.readEnd.get(), &error, sizeof(error));
    } while (got < 0 && errno == EINTR);
    if (got == sizeof(error)) {
        throw ClientError(ExitCode::CannotRun, "run.exec",
                          "cannot run " + program + ": " + strerror(error));
    }
}

// Text on its way to a pipe whose reader may be gone.
struct Outgoing {
    Descriptor& end;
    const std::string& text;
    size_t done = 0;

    void goOn() {
        const ssize_t count = write(end.get(), text.data() + done, text.size() - done);
        if (count > 0) {
            done += size_t(count);
        }
        const bool isBroken = count < 0 && errno != EAGAIN && errno != EINTR;
        if (isBroken || done == text.size()) {
            end = Descriptor();
        }
    }
};

struct Incoming {
    Descriptor& end;
    std::string& text;
    size_t most;

    void goOn() {
        char bytes[4096];
        const ssize_t count = read(end.get(), bytes, sizeof(bytes));
        if (count > 0) {
            text.append(bytes, std::min(size_t(count), most - std::min(most, text.size())));
        } else if (count == 0 || (errno != EAGAIN && errno != EINTR)) {
            end = Descriptor();
        }
    }
};

} // namespace

ProgramResult runProgram(const std::vector<std::string>& command, const std::string& input,
                         const std::string& secret, int timeoutMs, size_t mostOutput) {
    Pipe toInput, fromOutput, fromErrors, toSecret, failure;
    const pid_t pid = fork();
    if (pid == 0) {
        become(command, toInput, fromOutput, fromErrors, toSecret, failure);
    }
    if (pid < 0) {
        throw ClientError(ExitCode::CannotRun, "run.exec",
                          "cannot run " + command[0] + ": " + strerror(errno));
    }
    Child child(pid);
    throwIfNotStarted(failure, command[0]);
    toInput.readEnd = Descriptor();
    toSecret.readEnd = Descriptor();
    fromOutput.writeEnd = Descriptor();
    fromErrors.writeEnd = Descriptor();
    ProgramResult result;
    Outgoing outgoing[] = {{toInput.writeEnd, input}, {toSecret.writeEnd, secret}};
    Incoming incoming[] = {{fromOutput.readEnd, result.output, mostOutput},
                           {fromErrors.readEnd, result.errors, mostOutput}};
    for (Outgoing& text : outgoing) {
        fcntl(text.end.get(), F_SETFL, O_NONBLOCK);
        if (text.text.empty()) {
            text.end = Descriptor();
        }
    }
    const auto deadline = Clock::now() + std::chrono::milliseconds(timeoutMs);
    while (incoming[0].end || incoming[1].end) {
        throwIfInterrupted();
        if (Clock::now() >= deadline) {
            result.timedOut = true;
            child.end();
            break;
        }
        pollfd entries[] = {{outgoing[0].end.get(), POLLOUT, 0},
                            {outgoing[1].end.get(), POLLOUT, 0},
                            {incoming[0].end.get(), POLLIN, 0},
                            {incoming[1].end.get(), POLLIN, 0}};
        if (poll(entries, 4, WakeUpMs) <= 0) {
            continue;
        }
        for (size_t i = 0; i < 2; i++) {
            if (entries[i].revents != 0) {
                outgoing[i].goOn();
            }
            if (entries[i + 2].revents != 0) {
                incoming[i].goOn();
            }
        }
    }
    result.code = child.finish();
    return result;
}

} // namespace vdk
