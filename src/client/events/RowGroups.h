// Rows of a probe's table, grouped by a text of each: how many, how long, and sums of the numbers
// that the probe recorded.
#pragma once

#include "client/console/Console.h"
#include "client/events/ProbeTables.h"

#include <functional>
#include <map>
#include <string>
#include <vector>

namespace vdk {

struct RowGroup {
    int64_t count = 0;
    int64_t open = 0;    // of these, rows that have no end yet
    int64_t totalNs = 0; // of those that have ended
    int64_t maxNs = 0;
    int64_t cpuNs = 0;         // where it is known
    std::vector<int64_t> sums; // one a number column of the probe's, in their order

    int64_t meanNs() const { return count > open ? totalNs / (count - open) : 0; }
};

class RowGroups {
public:
    // The text that a row is grouped by.
    using Key = std::function<std::string(const ProbeRow&)>;
    RowGroups(const ProbeTable& table, const std::vector<const ProbeRow*>& rows, const Key& key);

    const std::map<std::string, RowGroup>& groups() const { return all; }
    // By total time, or by count where rows are moments. `title` is the column of the texts.
    void print(Console& console, const std::string& title, size_t top) const;
    // The elements of an array that the caller has begun; `field` names the text.
    void write(JsonWriter& json, const char* field, size_t top) const;

private:
    std::vector<std::pair<std::string, RowGroup>> heaviestGroups(size_t top) const;

    const ProbeTable& table;
    std::vector<int> numbers; // columns
    std::map<std::string, RowGroup> all;
};

} // namespace vdk
