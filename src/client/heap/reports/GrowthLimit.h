// --max-growth: how much the classes of a pattern may grow from one heap to another.
#pragma once

#include "client/heap/HeapClasses.h"

#include <map>
#include <string>

namespace vdk {

class GrowthLimit {
public:
    // "PATTERN:10%", "PATTERN:500" objects, or bytes as in "PATTERN:20m"; throws ClientError
    // (Usage).
    explicit GrowthLimit(const std::string& text);

    using Sums = std::map<std::string, HeapClassSum>; // by name
    struct Verdict {
        bool matches = false; // the pattern names something in either heap
        std::string reason;   // why the limit is broken, empty if it is kept
    };
    Verdict judge(const Sums& before, const Sums& after) const;

    const std::string& text() const { return whole; }

private:
    enum class Unit { Percent, Objects, Bytes };
    bool isBroken(int64_t before, int64_t after) const;

    std::string whole, pattern;
    Unit unit = Unit::Objects;
    int64_t limit = 0;
};

} // namespace vdk
