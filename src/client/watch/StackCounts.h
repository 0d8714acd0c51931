// Who calls a method: the stacks of its calls, each with how often it was seen.
#pragma once

#include "client/console/Console.h"
#include "client/watch/WatchedCall.h"

#include <map>
#include <string>
#include <vector>

namespace vdk {

class StackCounts {
public:
    void add(const WatchedCall& call);

    int64_t calls() const { return all; }
    // Most frequent first, the share of all beside the number.
    void print(Console& console, size_t top) const;
    // The elements of an array that the caller has begun.
    void write(JsonWriter& json, size_t top) const;

private:
    struct Sum {
        int64_t calls = 0;
        int64_t errors = 0;
        int64_t totalNs = 0;
    };
    using Stack = std::vector<std::string>; // the watched method is the first

    std::map<Stack, Sum> stacks;
    int64_t all = 0;
};

} // namespace vdk
