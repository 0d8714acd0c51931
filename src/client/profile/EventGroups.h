// What was recorded besides CPU times, grouped in one way: allocations, waits and exceptions alike,
// by method, call tree, class, thread or line.
#pragma once

#include "client/profile/Report.h"

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

std::vector<EventRow> eventRows(const Profile& allocations);
EventUnit eventUnit(const Profile& allocations);

// All kinds, by falling amount. Threads of a pool are one as text.
void printGroups(Console& console, const Profile& profile, const std::vector<EventRow>& rows,
                 const EventUnit& unit, const ReportChoices& choices);
// The fields "by" and "kinds" in an object that the caller has begun.
void writeGroups(JsonWriter& json, const Profile& profile, const std::vector<EventRow>& rows,
                 const EventUnit& unit, const ReportChoices& choices);

} // namespace vdk
