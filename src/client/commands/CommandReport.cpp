#include "client/agent/Protocol.h"
#include "client/commands/Commands.h"
#include "client/commands/Sources.h"
#include "client/console/Text.h"
#include "client/profile/GeneratedNames.h"
#include "client/profile/Report.h"

namespace vdk {

// Why a report is empty, as what is on explains it.
static std::string withoutCpuData(const DataSource& source) {
    if (!source.live) {
        return "the snapshot has no CPU data: sampling was off";
    }
    if (source.status & protocol::CPU_COUNTS_BIT) {
        return "no CPU data yet: tracing is on, and no call was traced; those on virtual threads "
               "are not";
    }
    return source.status & protocol::CPU_TIMES_BIT
               ? "no CPU data yet: sampling is on, and no thread has run"
               : "no CPU data yet: `vdk sample start " + source.name + "`";
}

static std::string withoutAllocations(const DataSource& source) {
    if (!source.live) {
        return "the snapshot has no allocations: they were not recorded";
    }
    return source.status & protocol::ALLOCATION_RECORDING_BIT
               ? "no allocations yet: they are recorded, and there was none"
               : "no allocations yet: `vdk alloc start " + source.name + "`";
}

int runReport(Console& console, const Arguments& arguments) {
    const bool ofAllocations = arguments.text("--of") == "allocations";
    DataSource source =
        openData(arguments.text("SOURCE"), arguments, ofAllocations ? AllocationTables : CpuTables);
    Profile profile =
        ofAllocations ? makeAllocationProfile(source.database()) : makeProfile(source.database());
    if (!arguments.has("--raw-names")) {
        mergeGeneratedNames(profile);
    }
    ReportChoices choices;
    choices.threads = size_t(arguments.number("--threads", 10));
    std::string show = arguments.text("--show", "all");
    choices.classes = show == "all" || show == "classes";
    choices.methods = show == "all" || show == "methods";
    choices.tree = show == "all" || show == "tree";
    choices.byThread = arguments.has("--by-thread");
    choices.filters = arguments.text("--filters") == "on";
    choices.signatures = arguments.has("--signatures");
    choices.top = size_t(arguments.number("--top", 30));
    choices.minPercent = double(arguments.number("--min-percent", 1));
    choices.depth = int(arguments.number("--depth", 60));
    if (profile.total() == 0) {
        console.note(ofAllocations ? withoutAllocations(source) : withoutCpuData(source));
    }
    if (console.json) {
        JsonWriter json(console.out, true);
        beginDocument(json, "vdk.report/1").field("source", source.name);
        json.field("of", ofAllocations ? "allocations" : "cpu");
        json.field("session", source.session).field("live", source.live).key("captureTimeMs");
        source.live ? json.nullValue() : json.value(source.captureTimeMs);
        writeReport(json, profile, choices);
        json.endObject();
        console.out << "\n";
        return 0;
    }
    console.note(std::string(source.live ? "Live: " : "Snapshot: ") + source.name + ", session " +
                 printable(source.session));
    printReport(console, profile, choices);
    return 0;
}

} // namespace vdk
