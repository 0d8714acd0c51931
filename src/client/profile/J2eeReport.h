// What CPU time was spent for, by name: requests, SQL statements, JNDI look-ups.
#pragma once

#include "client/profile/Report.h"

namespace vdk {

struct J2eeSums {
    int64_t timeNs = 0, count = 0;
};

// By kind and name. What goes on within an event of its own kind and name is that event's.
std::map<std::pair<int, std::string>, J2eeSums> j2eeSums(const Profile& profile);
// The events of a node of a tree that took so long at least, by falling time.
std::vector<std::pair<std::pair<int, std::string>, J2eeSums>>
j2eeOfNode(const Profile& profile, const CallTree::Node& node, int64_t least);

void printJ2ee(Console& console, const Profile& profile, const ReportChoices& choices);
// One event, as a line below its method in a tree.
std::string j2eeText(int kind, const std::string& name, const J2eeSums& sums);

// A field "j2ee", an array, in an object that the caller has begun.
void writeJ2ee(JsonWriter& json, const Profile& profile, const ReportChoices& choices);
// Likewise, of a node; none where it has no events.
void writeJ2eeOfNode(JsonWriter& json, const Profile& profile, const CallTree::Node& node,
                     int64_t least);

} // namespace vdk
