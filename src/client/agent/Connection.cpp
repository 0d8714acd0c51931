#include "client/agent/Connection.h"

#include "client/attach/Namespaces.h"
#include "client/console/Errors.h"
#include "client/console/Signals.h"
#include "client/console/Text.h"
#include "platform/Platform.h"

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstring>
#include <fcntl.h>
#include <mutex>
#include <netdb.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

namespace vdk {

namespace {

// One that its parent has not waited for has ended all the same; that of another user may be
// hidden.
bool hasEnded(int pid) {
    return kill(pid, 0) == 0 ? !Platform::isRunning(pid) : errno == ESRCH;
}

// Says so if the process that should answer has ended.
void throwIfEnded(int pid) {
    if (pid != 0 && hasEnded(pid)) {
        throw ClientError(ExitCode::AgentFailed, "target.ended",
                          "process " + std::to_string(pid) + " has ended");
    }
}

[[noreturn]] void failConnect(const Endpoint& endpoint, int error) {
    throwIfEnded(endpoint.pid);
    std::string hint;
    if (error == ECONNREFUSED) {
        hint =
            "the agent may have ended, or listen on another port; `vdk list` shows the live ones";
    }
    throw ClientError(ExitCode::AgentFailed, "agent.connect",
                      "cannot connect to " + endpoint.text() + ": " + strerror(error), hint);
}

// A socket of the network in which the endpoint is.
int newSocket(const Endpoint& endpoint, int family) {
    auto make = [&] {
        // The user that a socket is made as is one for all threads.
        static std::mutex ofUser;
        const std::lock_guard<std::mutex> lock(ofUser);
        TargetCredentials user(endpoint.uid < 0 ? geteuid() : uid_t(endpoint.uid), getegid());
        return socket(family, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0);
    };
    if (!endpoint.network) {
        return make();
    }
    NamespaceVisit visit("net", *endpoint.network);
    if (!visit.succeeded()) {
        int error = errno;
        throw ClientError(
            ExitCode::NoTarget, "target.network",
            "process " + std::to_string(endpoint.pid) +
                " has a network of its own, which cannot be entered: " + strerror(error),
            "run vdk as root, or `nsenter -t " + std::to_string(endpoint.pid) +
                " -n vdk status :" + std::to_string(endpoint.port) + "`");
    }
    return make();
}

int openSocket(const Endpoint& endpoint) {
    addrinfo hints = {};
    hints.ai_flags = endpoint.network ? AI_NUMERICHOST : 0; // names are those of this network
    hints.ai_family = AF_UNSPEC;
    hints.ai_socktype = SOCK_STREAM;
    addrinfo* addresses = nullptr;
    std::string port = std::to_string(endpoint.port);
    int result = getaddrinfo(endpoint.host.c_str(), port.c_str(), &hints, &addresses);
    if (result != 0) {
        throw ClientError(ExitCode::AgentFailed, "agent.connect",
                          "cannot resolve " + endpoint.host + ": " + gai_strerror(result));
    }
    int lastError = 0;
    int descriptor = -1;
    for (addrinfo* address = addresses; address && descriptor < 0; address = address->ai_next) {
        descriptor = newSocket(endpoint, address->ai_family);
        if (descriptor < 0) {
            lastError = errno;
            continue;
        }
        if (connect(descriptor, address->ai_addr, address->ai_addrlen) != 0 &&
            errno != EINPROGRESS) {
            lastError = errno;
            close(descriptor);
            descriptor = -1;
        }
    }
    freeaddrinfo(addresses);
    if (descriptor < 0) {
        failConnect(endpoint, lastError);
    }
    return descriptor;
}

} // namespace

Connection::Connection(const Endpoint& endpoint, int timeoutMs)
    : descriptor(openSocket(endpoint)), pid(endpoint.pid) {
    setTimeout(timeoutMs);
    try {
        waitFor(POLLOUT, "connection to");
        int error = 0;
        socklen_t size = sizeof(error);
        getsockopt(descriptor, SOL_SOCKET, SO_ERROR, &error, &size);
        if (error != 0) {
            failConnect(endpoint, error);
        }
        setTimeout(timeoutMs);
    } catch (...) {
        close(descriptor);
        throw;
    }
}

Connection::Connection(int descriptor, int timeoutMs) : descriptor(descriptor) {
    setTimeout(timeoutMs);
    fcntl(descriptor, F_SETFL, fcntl(descriptor, F_GETFL) | O_NONBLOCK);
}

Connection::~Connection() {
    close(descriptor);
}

void Connection::setTimeout(int milliseconds) {
    timeoutMs = milliseconds;
    deadline = Clock::now() + std::chrono::milliseconds(milliseconds);
}

void Connection::failTimeout(const char* what, const char* how) {
    throwIfEnded(pid);
    throw ClientError(ExitCode::TimedOut, "agent.timeout",
                      std::string(how) + what + " the agent within " + formatLimit(timeoutMs),
                      "another client may hold the agent's port; --timeout sets the limit");
}

void Connection::failLost(int error) {
    throwIfEnded(pid);
    throw ClientError(ExitCode::AgentFailed, "agent.closed",
                      std::string("connection to the agent lost: ") + strerror(error));
}

void Connection::failClosed() {
    // A process that is killed closes its connections a little before it has ended.
    for (int i = 0; i < 25 && pid != 0; i++) {
        throwIfEnded(pid);
        sleepUnlessInterrupted(20);
    }
    throw ClientError(ExitCode::BadInput, "agent.closed",
                      "the agent closed the connection in the middle of an answer",
                      "the profiled application may have ended");
}

void Connection::checkExchange(const char* what) {
    throwIfInterrupted();
    if (Clock::now() >= deadline) {
        failTimeout(what, "no complete ");
    }
}

void Connection::waitFor(short events, const char* what) {
    Clock::time_point end = std::min(deadline, Clock::now() + std::chrono::milliseconds(timeoutMs));
    while (true) {
        throwIfInterrupted();
        auto left =
            std::chrono::duration_cast<std::chrono::milliseconds>(end - Clock::now()).count();
        if (left <= 0) {
            failTimeout(what, "no ");
        }
        pollfd entry = {descriptor, events, 0};
        // A signal wakes one thread only; this may be another.
        int result = poll(&entry, 1, static_cast<int>(std::min<int64_t>(left, LongestWaitMs)));
        if (result > 0) {
            return;
        }
        if (result < 0 && errno != EINTR) {
            throw ClientError(ExitCode::AgentFailed, "agent.connect",
                              std::string("poll failed: ") + strerror(errno));
        }
    }
}

size_t Connection::readSome(void* data, size_t size) {
    if (position < buffer.size()) {
        size_t count = std::min(size, buffer.size() - position);
        memcpy(data, buffer.data() + position, count);
        position += count;
        return count;
    }
    bool direct = size >= BufferSize;
    if (!direct) {
        buffer.resize(BufferSize);
    }
    while (true) {
        checkExchange("answer from");
        ssize_t count = direct ? recv(descriptor, data, size, 0)
                               : recv(descriptor, buffer.data(), BufferSize, 0);
        if (count > 0 && paceBytesPerMs > 0) {
            deadline += std::chrono::microseconds(count * 1000 / paceBytesPerMs);
        }
        if (count >= 0 && direct) {
            return size_t(count);
        }
        if (count >= 0) {
            buffer.resize(size_t(count));
            position = 0;
            return count == 0 ? 0 : readSome(data, size);
        }
        if (errno == EAGAIN || errno == EWOULDBLOCK) {
            waitFor(POLLIN, "answer from");
        } else if (errno != EINTR) {
            int error = errno;
            buffer.clear();
            position = 0;
            failLost(error);
        }
    }
}

void Connection::read(void* data, size_t size) {
    char* to = static_cast<char*>(data);
    while (size > 0) {
        size_t count = readSome(to, size);
        if (count == 0) {
            failClosed();
        }
        to += count;
        size -= count;
    }
}

void Connection::write(const void* data, size_t size) {
    const char* from = static_cast<const char*>(data);
    while (size > 0) {
        checkExchange("room for a request to");
        ssize_t count = send(descriptor, from, size, MSG_NOSIGNAL);
        if (count > 0) {
            from += count;
            size -= size_t(count);
        } else if (errno == EAGAIN || errno == EWOULDBLOCK) {
            waitFor(POLLOUT, "room for a request to");
        } else if (errno != EINTR) {
            failLost(errno);
        }
    }
}

} // namespace vdk
