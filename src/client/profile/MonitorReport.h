// Reports on waits for monitors and locks: by class, by waiting thread, by owner, and where threads
// waited.
#pragma once

#include "client/console/Text.h"
#include "client/profile/EventGroups.h"

#include <string>
#include <vector>

class DB;

namespace vdk {

enum class WaitKind {
    Blocked,   // for a monitor or a lock that another thread held
    InWait,    // in Object.wait(), of a monitor that it held itself
    ForOthers, // parked until others do something: semaphores, latches, futures
    ForWork,   // parked for a signal, or as a pool's thread with nothing to do
};

// One row of monitor: a thread that waited.
struct MonitorUse {
    std::string className;
    int waiterTrn = 0;
    int ownerTrn = 0;
    std::string waiter, owner; // names
    int frame = 0;             // of Profile::frames; of a lock, where it is used
    int64_t timeNs = 0;
    int64_t count = 0;
    WaitKind kind = WaitKind::Blocked;
    std::string waiterGroup = {}; // of threads
};

struct MonitorUses {
    std::vector<MonitorUse> uses;
    int64_t recordedNs = -1; // length of the last recording; -1 if there was none
};

std::vector<EventRow> eventRows(const MonitorUses& monitors);
constexpr EventUnit WaitUnit = {"Waits", "TIME", "timeNs", formatNs, "TIMES", "count"};

MonitorUses readMonitors(DB& db, const Profile& profile);
void printMonitors(Console& console, const Profile& profile, const MonitorUses& monitors,
                   const ReportChoices& choices);
// The object "monitors" of a report.
void writeMonitors(JsonWriter& json, const Profile& profile, const MonitorUses& monitors,
                   const ReportChoices& choices);

} // namespace vdk
