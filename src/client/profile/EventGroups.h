// What was recorded, grouped in one way: CPU times, allocations, waits and exceptions alike, by
// method, call tree, class, package, thread, thread group or line.
#pragma once

#include "client/profile/EventTree.h"
#include "client/profile/Report.h"

#include <map>
#include <string>
#include <vector>

namespace vdk {

// One row of what was recorded.
struct EventRow {
    std::string kind; // "blocked"; each kind is told by itself
    std::string className, thread;
    int frame = 0; // the method that allocated, waited, threw
    int leaf = 0;  // where the row hangs in the call tree: `frame`, or a class below it
    int64_t amount = 0;
    int64_t count = 0;
    std::string group = {}; // of threads
    int trn = 0;            // of the thread
    int line = 0;           // of the leaf's method; 0 if it is not known
};

// What the numbers of rows are, and how reports name them.
struct EventUnit {
    const char* title;
    const char* amountTitle; // column
    const char* field;       // JSON
    std::string (*format)(int64_t);
    const char* countTitle; // null where the amount is all
    const char* countField;
};

// The name of a grouping as --by has it; Grouping::None for any other.
Grouping groupingOf(const std::string& name);
const char* groupingName(Grouping grouping);

// Of a profile of CPU times or of allocations.
std::vector<EventRow> eventRows(const Profile& profile);
EventUnit eventUnit(const Profile& profile);

struct EventSum {
    int64_t amount = 0, count = 0;

    EventSum& operator+=(const EventSum& other);
};

// The rows of a kind.
struct EventKind {
    EventSum all;
    std::map<std::string, EventSum> groups;
    std::vector<Charge> charges;
};
// By kind; with `pools` the threads of a pool are one.
std::map<std::string, EventKind> eventKinds(const Profile& profile,
                                            const std::vector<EventRow>& rows,
                                            const ReportChoices& choices, bool pools);
TreeUnit treeUnit(const EventUnit& unit);
// "THREAD", above the column of groups.
std::string groupingTitle(Grouping grouping);

// All kinds, by falling amount. Threads of a pool are one as text.
void printGroups(Console& console, const Profile& profile, const std::vector<EventRow>& rows,
                 const EventUnit& unit, const ReportChoices& choices);
// The fields "by" and "kinds" in an object that the caller has begun.
void writeGroups(JsonWriter& json, const Profile& profile, const std::vector<EventRow>& rows,
                 const EventUnit& unit, const ReportChoices& choices);

} // namespace vdk
