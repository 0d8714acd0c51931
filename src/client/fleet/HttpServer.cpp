#include "client/fleet/HttpServer.h"

#include "client/agent/Connection.h"
#include "client/console/Errors.h"
#include "client/console/Signals.h"
#include "client/console/Text.h"

#include <algorithm>
#include <boost/beast/http/empty_body.hpp>
#include <boost/beast/http/parser.hpp>
#include <boost/beast/http/status.hpp>
#include <cctype>
#include <cerrno>
#include <csignal>
#include <cstring>
#include <netdb.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

namespace vdk {

namespace {

namespace http = boost::beast::http;

constexpr int WakeUpMs = 200; // a signal wakes one thread only; this may be another
constexpr int Backlog = 64;

std::string inLowerCase(std::string text) {
    std::transform(text.begin(), text.end(), text.begin(),
                   [](unsigned char c) { return char(std::tolower(c)); });
    return text;
}

bool isLoopbackName(const std::string& host) {
    return host == "localhost" || startsWith(host, "127.") || host == "::1";
}

// "example.org:80" and "[::1]:80" without the port.
std::string hostOf(const std::string& address) {
    if (startsWith(address, "[")) {
        return address.substr(1, address.find(']') - 1);
    }
    return address.substr(0, address.find(':'));
}

// Takes as long whatever is different.
bool areEqual(const std::string& one, const std::string& other) {
    unsigned difference = one.size() == other.size() ? 0 : 1;
    for (size_t i = 0; i < one.size(); i++) {
        difference |= static_cast<unsigned char>(one[i]) ^
                      static_cast<unsigned char>(other.empty() ? 0 : other[i % other.size()]);
    }
    return difference == 0;
}

[[noreturn]] void failListen(const ListenAddress& address, const std::string& why) {
    throw ClientError(ExitCode::CannotWrite, "listen",
                      "cannot listen on " + address.text() + ": " + why,
                      "--listen takes another address, with port 0 any that is free");
}

int openListener(const ListenAddress& address) {
    addrinfo hints = {};
    hints.ai_family = AF_UNSPEC;
    hints.ai_socktype = SOCK_STREAM;
    hints.ai_flags = AI_PASSIVE;
    addrinfo* found = nullptr;
    const std::string port = std::to_string(address.port);
    const int problem = getaddrinfo(address.host.c_str(), port.c_str(), &hints, &found);
    if (problem != 0) {
        failListen(address, gai_strerror(problem));
    }
    int error = 0, descriptor = -1;
    for (const addrinfo* entry = found; entry && descriptor < 0; entry = entry->ai_next) {
        descriptor = socket(entry->ai_family, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0);
        const int on = 1;
        if (descriptor >= 0 &&
            (setsockopt(descriptor, SOL_SOCKET, SO_REUSEADDR, &on, sizeof(on)) != 0 ||
             bind(descriptor, entry->ai_addr, entry->ai_addrlen) != 0 ||
             listen(descriptor, Backlog) != 0)) {
            error = errno;
            close(descriptor);
            descriptor = -1;
        } else if (descriptor < 0) {
            error = errno;
        }
    }
    freeaddrinfo(found);
    if (descriptor < 0) {
        failListen(address, strerror(error));
    }
    return descriptor;
}

int portOf(int listener) {
    sockaddr_storage address = {};
    socklen_t size = sizeof(address);
    char port[16] = "";
    if (getsockname(listener, reinterpret_cast<sockaddr*>(&address), &size) != 0 ||
        getnameinfo(reinterpret_cast<sockaddr*>(&address), size, nullptr, 0, port, sizeof(port),
                    NI_NUMERICSERV) != 0) {
        return 0;
    }
    return int(parseNumber(port, 0, 65535).value_or(0));
}

std::string wireForm(const HttpAnswer& answer, const std::string& method) {
    std::string text = "HTTP/1.1 " + std::to_string(answer.status) + " " +
                       std::string(http::obsolete_reason(http::status(answer.status))) + "\r\n";
    const auto add = [&](const char* name, const std::string& value) {
        text += std::string(name) + ": " + value + "\r\n";
    };
    add("Server", "vdk");
    add("Content-Type", answer.mediaType);
    add("Content-Length", std::to_string(answer.body.size()));
    add("Connection", "close");
    add("X-Content-Type-Options", "nosniff");
    if (answer.status == 401) {
        add("WWW-Authenticate", "Bearer");
    }
    if (answer.status == 405) {
        add("Allow", "GET, HEAD");
    }
    return text + "\r\n" + (method == "HEAD" ? "" : answer.body);
}

} // namespace

bool ListenAddress::isLoopback() const {
    return isLoopbackName(host);
}

std::string ListenAddress::text() const {
    const bool isV6 = host.find(':') != std::string::npos;
    return (isV6 ? "[" + host + "]" : host) + ":" + std::to_string(port);
}

std::optional<ListenAddress> parseListenAddress(const std::string& text) {
    const size_t colon = text.rfind(':');
    if (colon == std::string::npos) {
        return std::nullopt;
    }
    const auto port = parseNumber(text.substr(colon + 1), 0, 65535);
    std::string host = text.substr(0, colon);
    const bool hasBrackets = host.size() > 2 && host.front() == '[' && host.back() == ']';
    if (hasBrackets) {
        host = host.substr(1, host.size() - 2);
    }
    if (!port || (host.find(':') != std::string::npos && !hasBrackets)) {
        return std::nullopt;
    }
    ListenAddress address;
    address.host = host.empty() ? address.host : host;
    address.port = int(*port);
    return address;
}

std::string HttpRequest::header(const std::string& name) const {
    const auto found = headers.find(name);
    return found == headers.end() ? "" : found->second;
}

HttpServer::HttpServer(const ListenAddress& address, std::string token, Handler handler,
                       HttpLimits limits)
    : bound(address), token(std::move(token)), handler(std::move(handler)), limits(limits),
      listener(openListener(address)) {
    bound.port = portOf(listener.get());
}

HttpServer::~HttpServer() {
    awaitFree(0);
}

void HttpServer::awaitFree(int most) {
    std::unique_lock<std::mutex> lock(mutex);
    changed.wait(lock, [&] { return atWork <= most; });
}

void HttpServer::run() {
    while (!isInterrupted()) {
        awaitFree(limits.connections - 1);
        pollfd entry = {listener.get(), POLLIN, 0};
        if (poll(&entry, 1, WakeUpMs) <= 0) {
            continue;
        }
        const int connection = accept4(listener.get(), nullptr, nullptr, SOCK_CLOEXEC);
        if (connection < 0) {
            if (errno == EMFILE || errno == ENFILE || errno == ENOMEM) {
                sleepUnlessInterrupted(WakeUpMs);
            }
            continue; // who called has gone again
        }
        {
            const std::lock_guard<std::mutex> lock(mutex);
            atWork++;
        }
        sigset_t all, former;
        sigfillset(&all);
        pthread_sigmask(SIG_SETMASK, &all, &former);
        std::thread([this, connection] {
            try {
                serve(connection);
            } catch (const std::exception&) {
                // Too slow, gone, or no memory: the connection is closed.
            }
            const std::lock_guard<std::mutex> lock(mutex);
            atWork--;
            changed.notify_all();
        }).detach();
        pthread_sigmask(SIG_SETMASK, &former, nullptr);
    }
}

void HttpServer::serve(int descriptor) {
    Connection connection(descriptor, limits.requestMs);
    http::request_parser<http::empty_body> parser;
    parser.header_limit(uint32_t(limits.headBytes));
    parser.skip(true); // no request that is answered has a body
    std::string head;
    HttpAnswer answer;
    std::string method = "GET";
    boost::system::error_code error;
    while (!parser.is_header_done() && !error) {
        char bytes[1024];
        const size_t count = connection.readSome(bytes, sizeof(bytes));
        if (count == 0) {
            return;
        }
        head.append(bytes, count);
        const size_t taken = parser.put(boost::asio::buffer(head), error);
        if (error == http::error::need_more) {
            error = {};
        }
        head.erase(0, taken);
        if (head.size() > limits.headBytes) {
            error = http::error::header_limit;
        }
    }
    if (error) {
        answer = {error == http::error::header_limit ? 431 : 400, answer.mediaType,
                  "bad request\n"};
    } else {
        const auto& message = parser.get();
        method = std::string(message.method_string());
        HttpRequest request;
        const std::string target(message.target());
        request.path = target.substr(0, target.find('?'));
        for (const auto& field : message) {
            request.headers[inLowerCase(std::string(field.name_string()))] =
                std::string(field.value());
        }
        answer = answerTo(method, request);
    }
    const std::string bytes = wireForm(answer, method);
    connection.setTimeout(limits.answerMs);
    connection.write(bytes.data(), bytes.size());
}

HttpAnswer HttpServer::answerTo(const std::string& method, const HttpRequest& request) const {
    HttpAnswer answer;
    if (method != "GET" && method != "HEAD") {
        return {405, answer.mediaType, "only GET and HEAD\n"};
    }
    // A page of the web whose name was made to lead here is none of those who may ask.
    const std::string host = hostOf(inLowerCase(request.header("host")));
    if (bound.isLoopback() && !isLoopbackName(host)) {
        return {403, answer.mediaType, "this address serves its own machine\n"};
    }
    if (!token.empty() && !areEqual(request.header("authorization"), "Bearer " + token)) {
        return {401, answer.mediaType, "a token is needed\n"};
    }
    return handler(request);
}

} // namespace vdk
