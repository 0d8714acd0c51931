// Reports on exceptions: by class, by throwing and by catching method, and the tree of throws.
#pragma once

#include "client/console/Text.h"
#include "client/profile/EventGroups.h"

#include <string>
#include <vector>

class DB;

namespace vdk {

// One row of exception.
struct ThrownRow {
    std::string className, thread;
    int throwFrame = 0;
    int catchFrame = 0; // 0 where nobody caught it
    int64_t count = 0;
    std::string group = {}; // of threads
    int trn = 0;
};

std::vector<EventRow> eventRows(const std::vector<ThrownRow>& rows);
constexpr EventUnit ThrowUnit = {"Exceptions", "COUNT", "count", formatCount, nullptr, nullptr};

// Whether inserted calls counted, which see exceptions where they are created.
bool areCountedByCalls(DB& db);
std::vector<ThrownRow> readExceptions(DB& db, const Profile& profile);
void printExceptions(Console& console, const Profile& profile, const std::vector<ThrownRow>& rows,
                     bool byCalls, const ReportChoices& choices);
// The object "exceptions" of a report.
void writeExceptions(JsonWriter& json, const Profile& profile, const std::vector<ThrownRow>& rows,
                     bool byCalls, const ReportChoices& choices);

} // namespace vdk
