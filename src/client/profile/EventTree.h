// Call trees whose nodes carry a number of something other than CPU time, as text and as JSON, and
// sums by a key for the lists beside them.
#pragma once

#include "client/profile/Report.h"

#include <algorithm>
#include <map>
#include <string>
#include <vector>

namespace vdk {

// What the numbers of a tree are.
struct TreeUnit {
    std::string (*format)(int64_t);
    const char* field; // in JSON
    bool hasCounts;    // number of events beside them
};

void printEventTree(Console& console, const Profile& profile, const CallTree& tree,
                    const ReportChoices& choices, const TreeUnit& unit);
// The nodes below the root, as elements of an array that the caller has begun.
void writeEventTree(JsonWriter& json, const Profile& profile, const CallTree& tree,
                    const ReportChoices& choices, const TreeUnit& unit);

// The frame's method, as lists name it; "-" without one.
std::string frameName(const Profile& profile, int frame, const ReportChoices& choices);

// The entries of a map by falling weight, at most so many.
template <typename Key, typename Value, typename Weight>
std::vector<std::pair<Key, Value>> heaviest(const std::map<Key, Value>& all, size_t most,
                                            Weight weight) {
    std::vector<std::pair<Key, Value>> sorted(all.begin(), all.end());
    std::stable_sort(sorted.begin(), sorted.end(), [&](const auto& a, const auto& b) {
        return weight(a.second) > weight(b.second);
    });
    sorted.resize(std::min(sorted.size(), most));
    return sorted;
}

// What lists for people call a thread: threads whose names differ in the number at the end only are
// one line, with * for the number.
class PoolNames {
public:
    explicit PoolNames(const std::vector<std::string>& names);
    std::string operator()(const std::string& name) const;

private:
    std::map<std::string, std::string> firstOfStem; // empty once a second name has the stem
};

// Tells how many entries of a list are not shown.
void noteRest(Console& console, size_t all, size_t shown);

} // namespace vdk
