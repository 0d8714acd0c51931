// What an agent's tables held before a recording began, taken off again from what they hold at its
// end: data of earlier recordings stays in the JVM until somebody clears it.
#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <tuple>
#include <utility>
#include <vector>

class DB;

namespace vdk {

// Rows as they were before something was taken off; they are so again at its end. The database
// must live as long and not change meanwhile.
class RowsBefore {
public:
    RowsBefore() = default;
    ~RowsBefore();
    RowsBefore(const RowsBefore&) = delete;
    RowsBefore& operator=(const RowsBefore&) = delete;

    void keep(void* row, size_t bytes);

private:
    std::vector<std::pair<char*, std::string>> rows;
};

class Baseline {
public:
    explicit Baseline(DB& db);
    bool isEmpty() const { return sums.empty(); }
    // Of rows whose sums are smaller than before nothing is taken off: they were cleared meanwhile.
    // With `before` for a while alone.
    void takeOff(DB& db, RowsBefore* before = nullptr) const;

private:
    // A table's slot and what a row of it is about. Rows themselves are used again.
    using Key = std::tuple<int, int, int, int, int>;
    using Sums = std::pair<int64_t, int64_t>;
    template <typename Visitor>
    static void eachRow(DB& db, Visitor visitor);

    std::map<Key, Sums> sums;
};

} // namespace vdk
