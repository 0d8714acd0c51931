#include "client/profile/J2eeReport.h"

#include "client/console/Text.h"
#include "client/profile/EventTree.h"

#include <algorithm>

namespace vdk {

namespace {

using Key = std::pair<int, std::string>; // kind and name
using Sums = std::map<Key, J2eeSums>;

struct KindName {
    int kind;
    const char* text;
    const char* json;
};
const KindName KindNames[] = {{1, "SQL", "sql"},         {2, "connect", "connect"},
                              {4, "servlet", "servlet"}, {5, "JSP", "jsp"},
                              {6, "part", "dispatch"},   {7, "JNDI", "jndi"}};

const KindName& kindName(int kind) {
    static const KindName unknown = {0, "other", "other"};
    const auto* found = std::find_if(std::begin(KindNames), std::end(KindNames),
                                     [kind](const KindName& name) { return name.kind == kind; });
    return found == std::end(KindNames) ? unknown : *found;
}

int64_t timeOf(const J2eeSums& sums) {
    return sums.timeNs;
}

void add(Sums& sums, const J2eeEvent& event) {
    J2eeSums& sum = sums[{event.kind, event.name}];
    sum.timeNs += event.timeNs;
    sum.count += event.count;
}

void writeEvent(JsonWriter& json, const Key& key, const J2eeSums& sums) {
    json.beginObject().field("kind", kindName(key.first).json).field("name", key.second);
    json.field("count", sums.count).field("timeNs", sums.timeNs).endObject();
}

// Finds events within others of their kind and name on a thread, such as those of a driver's
// statement in the one of a pool.
class Outer {
public:
    explicit Outer(const Profile& profile) : profile(profile) {
        for (const J2eeEvent& event : profile.j2ee) {
            frames[{event.thread, event.kind, event.name}].push_back(event.frame);
        }
        for (auto& [key, list] : frames) {
            std::sort(list.begin(), list.end());
        }
    }
    bool has(const J2eeEvent& event) const {
        const std::vector<int>& same = frames.at({event.thread, event.kind, event.name});
        int at = event.frame;
        // Parents have lower numbers.
        while (at > same.front()) {
            at = profile.frames[size_t(at)].parent;
            if (std::binary_search(same.begin(), same.end(), at)) {
                return true;
            }
        }
        return false;
    }

private:
    const Profile& profile;
    std::map<std::tuple<int, int, std::string>, std::vector<int>> frames;
};

} // namespace

std::map<std::pair<int, std::string>, J2eeSums> j2eeSums(const Profile& profile) {
    const Outer outer(profile);
    Sums sums;
    for (const J2eeEvent& event : profile.j2ee) {
        if (!outer.has(event)) {
            add(sums, event);
        }
    }
    return sums;
}

std::vector<std::pair<std::pair<int, std::string>, J2eeSums>>
j2eeOfNode(const Profile& profile, const CallTree::Node& node, int64_t least) {
    Sums sums;
    for (int event : node.j2ee) {
        add(sums, profile.j2ee[size_t(event)]);
    }
    auto list = heaviest(sums, sums.size(), timeOf);
    list.erase(std::remove_if(list.begin(), list.end(),
                              [least](const auto& each) { return each.second.timeNs < least; }),
               list.end());
    return list;
}

std::string j2eeText(int kind, const std::string& name, const J2eeSums& sums) {
    return std::string("<") + kindName(kind).text + "> " + printable(name) + "  " +
           formatNs(sums.timeNs) + ", events " + formatCount(sums.count);
}

void printJ2ee(Console& console, const Profile& profile, const ReportChoices& choices) {
    const Sums sums = j2eeSums(profile);
    TextTable table({{"TIME", TextTable::Right},
                     {"TIME%", TextTable::Right},
                     {"EVENTS", TextTable::Right},
                     {"MEAN", TextTable::Right},
                     {"KIND"},
                     {"NAME"}});
    for (const auto& [key, sum] : heaviest(sums, choices.top, timeOf)) {
        table.add({formatNs(sum.timeNs), formatPercent(percentOf(sum.timeNs, profile.total())),
                   formatCount(sum.count), formatNs(sum.count > 0 ? sum.timeNs / sum.count : 0),
                   kindName(key.first).text, printable(key.second)});
    }
    console.out << console.styled("Requests, statements, look-ups", "1")
                << " (what goes on within another one is part of both)\n";
    table.print(console);
    noteRest(console, sums.size(), choices.top);
}

void writeJ2ee(JsonWriter& json, const Profile& profile, const ReportChoices& choices) {
    json.key("j2ee").beginArray();
    for (const auto& [key, sum] : heaviest(j2eeSums(profile), choices.top, timeOf)) {
        writeEvent(json, key, sum);
    }
    json.endArray();
}

void writeJ2eeOfNode(JsonWriter& json, const Profile& profile, const CallTree::Node& node,
                     int64_t least) {
    if (node.j2ee.empty()) {
        return;
    }
    json.key("j2ee").beginArray();
    for (const auto& [key, sum] : j2eeOfNode(profile, node, least)) {
        writeEvent(json, key, sum);
    }
    json.endArray();
}

} // namespace vdk
