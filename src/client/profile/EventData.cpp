#include "client/profile/EventData.h"

#include "client/profile/ExceptionReport.h"
#include "client/profile/GeneratedNames.h"
#include "client/profile/MonitorReport.h"
#include "db/DB.h"

#include <algorithm>

namespace vdk {

namespace {

// The table that is cleared with the data.
int slotOf(Shown what) {
    switch (what) {
    case Shown::Cpu:
        return SLOT_CPUProfiling;
    case Shown::Monitors:
        return SLOT_Monitor;
    case Shown::Exceptions:
        return SLOT_Exception;
    default:
        return SLOT_AllocInfo;
    }
}

Recorded recordedOf(Shown what) {
    return what == Shown::Live      ? Recorded::Live
           : what == Shown::Garbage ? Recorded::Garbage
                                    : Recorded::All;
}

} // namespace

const std::vector<ShownName>& shownNames() {
    static const std::vector<ShownName> names = {
        {Shown::Cpu, "cpu", "cpu"},
        {Shown::Allocations, "allocations", "allocations"},
        {Shown::Live, "live", "liveObjects"},
        {Shown::Garbage, "garbage", "garbage"},
        {Shown::Monitors, "monitors", "monitors"},
        {Shown::Exceptions, "exceptions", "exceptions"},
    };
    return names;
}

const ShownName& nameOf(Shown what) {
    return *std::find_if(shownNames().begin(), shownNames().end(),
                         [&](const ShownName& name) { return name.what == what; });
}

EventData readEvents(DB& db, Shown what, bool mergeNames, const Selection& selection) {
    EventData data;
    data.what = what;
    data.clearedStamp = db.tableGenerationTable->getRecordModificationStamp(slotOf(what));
    const bool isOfObjects = slotOf(what) == SLOT_AllocInfo;
    data.profile = isOfObjects ? makeAllocationProfile(db, recordedOf(what)) : makeProfile(db);
    if (what == Shown::Monitors) {
        data.rows = eventRows(readMonitors(db, data.profile));
        data.unit = WaitUnit;
    } else if (what == Shown::Exceptions) {
        data.rows = eventRows(readExceptions(db, data.profile));
        data.unit = ThrowUnit;
    }
    if (mergeNames) {
        mergeGeneratedNames(data.profile);
    }
    if (!selection.isEmpty()) {
        const StackSelector selector(data.profile, selection);
        data.unmatched = selector.findUnmatched();
        selector.apply(data.profile);
        keepRows(data.rows,
                 [&](const EventRow& row) { return selector.keeps(row.thread, row.leaf); });
    }
    if (isOfObjects || what == Shown::Cpu) {
        data.rows = eventRows(data.profile);
        data.unit = eventUnit(data.profile);
        data.isKnown = recordedOf(what) == Recorded::All || knowsLiveObjects(db);
    }
    return data;
}

} // namespace vdk
