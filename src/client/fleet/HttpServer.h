// A small HTTP server for programs that read: GET and HEAD, one request a connection, every request
// bounded in size and time, so many at a time. What HTTP is stands in a library (Boost.Beast).
#pragma once

#include "client/console/Descriptor.h"

#include <condition_variable>
#include <functional>
#include <map>
#include <mutex>
#include <optional>
#include <string>
#include <thread>
#include <vector>

namespace vdk {

// Where to listen: "127.0.0.1:9464", "[::1]:0", ":9464" (this machine only).
struct ListenAddress {
    std::string host = "127.0.0.1";
    int port = 0;

    bool isLoopback() const;
    std::string text() const;
};
std::optional<ListenAddress> parseListenAddress(const std::string& text);

struct HttpRequest {
    std::string path;                           // without a query
    std::map<std::string, std::string> headers; // names in lower case

    std::string header(const std::string& name) const;
};

struct HttpAnswer {
    int status = 200;
    std::string mediaType = "text/plain; charset=utf-8";
    std::string body;
};

struct HttpLimits {
    int connections = 16;    // at work; others wait for one to end
    size_t headBytes = 8192; // of a request
    int requestMs = 5000;    // for a request to be there as a whole
    int answerMs = 10000;    // for an answer to be taken
};

class HttpServer {
public:
    using Handler = std::function<HttpAnswer(const HttpRequest&)>;

    // Listens. With a token only requests that bear it are answered; an answer on a loopback
    // address is for those alone who ask for it by such a name. Throws ClientError CannotWrite
    // "listen".
    HttpServer(const ListenAddress& address, std::string token, Handler handler,
               HttpLimits limits = {});
    // Waits for the requests at work.
    ~HttpServer();
    HttpServer(const HttpServer&) = delete;
    HttpServer& operator=(const HttpServer&) = delete;

    // The address, with the port that the system chose for 0.
    const ListenAddress& address() const { return bound; }
    // Serves until SIGINT or SIGTERM.
    void run();

private:
    void serve(int connection);
    HttpAnswer answerTo(const std::string& method, const HttpRequest& request) const;
    void awaitFree(int most);

    ListenAddress bound;
    const std::string token;
    const Handler handler;
    const HttpLimits limits;
    Descriptor listener;
    std::mutex mutex;
    std::condition_variable changed;
    int atWork = 0;
};

} // namespace vdk
