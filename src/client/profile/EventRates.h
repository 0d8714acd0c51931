// What was recorded at two moments, grouped in one way: the sums, and what the interval between the
// moments brought. Of live objects, which come and go, the interval tells the change.
#pragma once

#include "client/profile/EventData.h"

namespace vdk {

struct EventRate {
    EventSum sum, interval;
};

struct KindRates {
    EventRate all;
    std::map<std::string, EventRate> groups; // but for Grouping::Tree
    // The stacks of the interval, of live objects those of the sums; and beside each node what the
    // other of the two has.
    CallTree tree;
    std::vector<EventSum> besides;
};

struct EventRates {
    std::map<std::string, KindRates> kinds;
    double seconds = 0; // length of the interval
};

// With `pools` the threads of a pool are one. Of the earlier moment only rows and stamp are used.
EventRates eventRates(const EventData& before, const EventData& now, double seconds,
                      const ReportChoices& choices, bool pools);

// What one JVM has of a view; `jvm` is empty where there is only one.
struct JvmRates {
    std::string jvm;
    const EventData& now;
    const EventRates& rates;
};

// Lists are of all JVMs together, the heaviest first, with a column for the JVM; trees follow one
// another.
void printRates(Console& console, const std::vector<JvmRates>& jvms, const ReportChoices& choices);
// The fields "by" and "kinds", as writeGroups has them, and beside each number that of the
// interval.
void writeRates(JsonWriter& json, const EventData& now, const EventRates& rates,
                const ReportChoices& choices);

} // namespace vdk
