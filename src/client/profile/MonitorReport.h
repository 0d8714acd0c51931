// Reports on waits for monitors: by class, by waiting thread, by owner, and where threads waited.
#pragma once

#include "client/profile/Report.h"

#include <string>
#include <vector>

class DB;

namespace vdk {

// One row of monitor: a thread that waited for another one's monitor, or in Object.wait().
struct MonitorUse {
    std::string className;
    int waiterTrn = 0;
    int ownerTrn = 0;
    std::string waiter, owner; // names
    int frame = 0;             // of Profile::frames
    int64_t timeNs = 0;
    int64_t count = 0;
    bool inWait = false; // in Object.wait(), of a monitor that it held itself
};

struct MonitorUses {
    std::vector<MonitorUse> uses;
    int64_t recordedNs = -1; // length of the last recording; -1 if there was none
};

MonitorUses readMonitors(DB& db, const Profile& profile);
void printMonitors(Console& console, const Profile& profile, const MonitorUses& monitors,
                   const ReportChoices& choices);
// The object "monitors" of a report.
void writeMonitors(JsonWriter& json, const Profile& profile, const MonitorUses& monitors,
                   const ReportChoices& choices);

} // namespace vdk
