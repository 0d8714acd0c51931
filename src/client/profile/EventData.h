// What --show names in `vdk report` and `vdk top`, read from a database in the form that --by
// groups.
#pragma once

#include "client/profile/EventGroups.h"
#include "client/profile/Selection.h"

class DB;

namespace vdk {

enum class Shown { Cpu, Allocations, Live, Garbage, Monitors, Exceptions };

struct ShownName {
    Shown what;
    const char* option; // as --show has it
    const char* field;  // in JSON
};
const std::vector<ShownName>& shownNames();
const ShownName& nameOf(Shown what);

struct EventData {
    Shown what = Shown::Cpu;
    Profile profile; // of the frames of the rows
    std::vector<EventRow> rows;
    EventUnit unit = {};
    bool isKnown = true;  // false of live objects and garbage where the agent does not tell
    int clearedStamp = 0; // changes when the data is cleared
    std::vector<std::string> unmatched; // patterns of the selection
};

// With mergeNames the numbers of generated classes go. Only what the selection keeps is in it.
EventData readEvents(DB& db, Shown what, bool mergeNames, const Selection& selection = {});

} // namespace vdk
