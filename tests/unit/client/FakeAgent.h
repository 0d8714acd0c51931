// A server thread in the place of an agent: each connection runs the test's handler.
#pragma once

#include "client/agent/Connection.h"
#include "client/agent/Protocol.h"

#include <arpa/inet.h>
#include <atomic>
#include <cstring>
#include <functional>
#include <netinet/in.h>
#include <string>
#include <sys/socket.h>
#include <thread>
#include <unistd.h>

// Big-endian bytes of an answer.
class Answer {
public:
    Answer& number(int64_t value, int bytes) {
        for (int shift = 8 * (bytes - 1); shift >= 0; shift -= 8) {
            data += char(uint64_t(value) >> shift);
        }
        return *this;
    }
    Answer& integer(int32_t value) { return number(value, 4); }
    Answer& longInteger(int64_t value) { return number(value, 8); }
    Answer& text(const std::string& characters) {
        integer(int32_t(characters.size()));
        data += characters;
        return *this;
    }
    Answer& bytes(const std::string& raw) {
        data += raw;
        return *this;
    }
    Answer& header(int type) { return longInteger(vdk::protocol::Magic).integer(type); }
    Answer& ok() { return header(vdk::protocol::PACKET_OK_RESP); }

    std::string data;
};

// A port of this machine that belongs to this object: nothing listens there, and nobody else can.
class UnheardPort {
public:
    UnheardPort() : descriptor(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
        endpoint.port = bindToAnyPort(descriptor);
    }
    ~UnheardPort() { close(descriptor); }
    UnheardPort(const UnheardPort&) = delete;
    UnheardPort& operator=(const UnheardPort&) = delete;

    // The port that the socket gets on the loopback interface.
    static int bindToAnyPort(int descriptor) {
        sockaddr_in address = {};
        address.sin_family = AF_INET;
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        socklen_t size = sizeof(address);
        bind(descriptor, reinterpret_cast<sockaddr*>(&address), size);
        getsockname(descriptor, reinterpret_cast<sockaddr*>(&address), &size);
        return ntohs(address.sin_port);
    }

    vdk::Endpoint endpoint;

private:
    int descriptor;
};

// Its end waits until the connection that is being served is done.
class FakeAgent {
public:
    using Handler = std::function<void(int descriptor, int connection)>;

    // connection counts from 0.
    explicit FakeAgent(Handler handler) : handler(std::move(handler)) {
        listener = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
        endpoint.port = UnheardPort::bindToAnyPort(listener);
        listen(listener, 10);
        server = std::thread([this] { serve(); });
    }
    // Answers with the bytes to whatever comes first, then closes.
    static FakeAgent answering(const std::string& bytes) {
        return FakeAgent([bytes](int descriptor, int) {
            readSome(descriptor);
            sendAll(descriptor, bytes);
        });
    }
    ~FakeAgent() {
        shutdown(listener, SHUT_RDWR);
        server.join();
        close(listener);
    }
    FakeAgent(const FakeAgent&) = delete;
    FakeAgent& operator=(const FakeAgent&) = delete;

    static void sendAll(int descriptor, const std::string& bytes) {
        size_t sent = 0;
        while (sent < bytes.size()) {
            ssize_t count =
                send(descriptor, bytes.data() + sent, bytes.size() - sent, MSG_NOSIGNAL);
            if (count <= 0) {
                return;
            }
            sent += size_t(count);
        }
    }
    static std::string readSome(int descriptor) {
        char buffer[65536];
        ssize_t count = recv(descriptor, buffer, sizeof(buffer), 0);
        return {buffer, size_t(count < 0 ? 0 : count)};
    }
    static std::string readExactly(int descriptor, size_t size) {
        std::string bytes(size, '\0');
        size_t done = 0;
        while (done < size) {
            ssize_t count = recv(descriptor, bytes.data() + done, size - done, 0);
            if (count <= 0) {
                break;
            }
            done += size_t(count);
        }
        bytes.resize(done);
        return bytes;
    }

    vdk::Endpoint endpoint;

private:
    void serve() {
        for (int count = 0;; count++) {
            int descriptor = accept(listener, nullptr, nullptr);
            if (descriptor < 0) {
                return;
            }
            handler(descriptor, count);
            shutdown(descriptor, SHUT_WR);
            // Reads what is left, so that closing does not reset what was sent.
            while (!readSome(descriptor).empty()) {
            }
            close(descriptor);
        }
    }

    Handler handler;
    int listener = -1;
    std::thread server;
};
