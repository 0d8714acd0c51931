// What an agent's tables held before a recording began, taken off again from what they hold at its
// end: data of earlier recordings stays in the JVM until somebody clears it.
#pragma once

#include <cstdint>
#include <map>
#include <tuple>
#include <utility>

class DB;

namespace vdk {

class Baseline {
public:
    explicit Baseline(DB& db);
    bool isEmpty() const { return sums.empty(); }
    // Of rows whose sums are smaller than before nothing is taken off: they were cleared meanwhile.
    void takeOff(DB& db) const;

private:
    // A table's slot and what a row of it is about. Rows themselves are used again.
    using Key = std::tuple<int, int, int, int, int>;
    using Sums = std::pair<int64_t, int64_t>;
    template <typename Visitor>
    static void eachRow(DB& db, Visitor visitor);

    std::map<Key, Sums> sums;
};

} // namespace vdk
