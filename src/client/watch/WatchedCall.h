// A call of a watched method, as the agent tells it.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace vdk {

struct WatchedCall {
    int64_t number = 0; // in the order of their ends
    int64_t endMs = 0;  // since 1970
    int64_t durationNs = 0;
    int64_t threadId = 0;
    std::string thread;
    std::string className, method, signature; // className declares the method
    std::optional<std::string> objectClass;
    bool threw = false;
    // What was asked for; values are short texts.
    std::optional<std::string> self;
    std::optional<std::vector<std::string>> arguments;
    std::optional<std::string> result;
    std::optional<std::string> exception; // its class and message
    std::vector<std::string> stack;       // the watched method first

    std::string name() const { return className + "." + method; }
};

} // namespace vdk
