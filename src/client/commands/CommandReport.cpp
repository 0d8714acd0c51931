#include "client/agent/Protocol.h"
#include "client/commands/Commands.h"
#include "client/commands/Sources.h"
#include "client/console/Text.h"
#include "client/profile/EventGroups.h"
#include "client/profile/ExceptionReport.h"
#include "client/profile/GeneratedNames.h"
#include "client/profile/MonitorReport.h"

namespace vdk {

namespace {

// Why a report is empty, as what is on explains it.
std::string withoutCpuData(const DataSource& source) {
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

std::string withoutAllocations(const DataSource& source) {
    if (!source.live) {
        return "the snapshot has no allocations: they were not recorded";
    }
    return source.status & protocol::ALLOCATION_RECORDING_BIT
               ? "no allocations yet: they are recorded, and there was none"
               : "no allocations yet: `vdk alloc start " + source.name + "`";
}

// Of live objects or garbage.
std::string withoutObjects(const DataSource& source, bool known, const char* what) {
    return known ? std::string("no recorded object ") + what
           : source.live
               ? "not known which recorded objects live: `vdk alloc start " + source.name + "`"
               : "the snapshot does not tell which recorded objects lived: allocations were not "
                 "recorded";
}

std::string withoutMonitors(const DataSource& source) {
    if (!source.live) {
        return "the snapshot has no waits for monitors";
    }
    return source.status & protocol::MONITORS_BIT
               ? "no thread has waited for a monitor yet; those on virtual threads are not seen"
               : "no waits recorded yet: `vdk monitors start " + source.name + "`";
}

std::string withoutExceptions(const DataSource& source) {
    if (!source.live) {
        return "the snapshot has no exceptions";
    }
    return source.status & protocol::EXCEPTION_TELEMETRY_BIT
               ? "no exceptions counted yet"
               : "no exceptions counted yet: `vdk exceptions on " + source.name + "`";
}

ReportChoices choicesOf(const Arguments& arguments) {
    ReportChoices choices;
    const std::string show = arguments.text("--show", "all");
    const bool all = show == "all";
    choices.by = groupingOf(arguments.text("--by"));
    const bool isGrouped = choices.by != Grouping::None;
    if (isGrouped && (show == "methods" || show == "tree")) {
        throw ClientError(ExitCode::Usage, "usage",
                          "--by groups allocations, live objects, garbage, monitors and "
                          "exceptions; CPU times have --show methods and --show tree");
    }
    choices.methods = (all && !isGrouped) || show == "methods";
    choices.tree = (all && !isGrouped) || show == "tree";
    choices.live = show == "live";
    choices.garbage = show == "garbage";
    choices.allocations = all || show == "allocations";
    choices.monitors = all || show == "monitors";
    choices.exceptions = all || show == "exceptions";
    choices.threads = size_t(arguments.number("--threads", 10));
    choices.byThread = arguments.has("--by-thread");
    choices.filters = arguments.text("--filters") == "on";
    choices.signatures = arguments.has("--signatures");
    choices.top = size_t(arguments.number("--top", 30));
    choices.minPercent = double(arguments.number("--min-percent", 1));
    choices.depth = int(arguments.number("--depth", 60));
    return choices;
}

// All sections of the allocations, whatever is shown of CPU times.
ReportChoices ofAllocations(const ReportChoices& choices) {
    ReportChoices all = choices;
    all.methods = true;
    all.tree = true;
    return all;
}

struct ReportData {
    Profile profile;
    Profile allocations, live, garbage;
    bool knowsLive = false;
    MonitorUses monitors;
    std::vector<ThrownRow> exceptions;
    bool exceptionsByCalls = false;
};

// The profiles of objects that are shown, under their names in JSON.
std::vector<std::pair<const char*, const Profile*>> objectProfiles(const ReportData& data,
                                                                   const ReportChoices& choices) {
    std::vector<std::pair<const char*, const Profile*>> profiles;
    if (choices.allocations) {
        profiles.emplace_back("allocations", &data.allocations);
    }
    if (choices.live) {
        profiles.emplace_back("liveObjects", &data.live);
    }
    if (choices.garbage) {
        profiles.emplace_back("garbage", &data.garbage);
    }
    return profiles;
}

void writeGrouped(JsonWriter& json, const ReportData& data, const ReportChoices& choices) {
    for (const auto& [name, profile] : objectProfiles(data, choices)) {
        json.key(name).beginObject();
        writeEstimate(json, *profile);
        writeGroups(json, *profile, eventRows(*profile), eventUnit(*profile), choices);
        json.endObject();
    }
    if (choices.monitors) {
        json.key("monitors").beginObject();
        writeGroups(json, data.profile, eventRows(data.monitors), WaitUnit, choices);
        json.endObject();
    }
    if (choices.exceptions) {
        json.key("exceptions").beginObject();
        writeGroups(json, data.profile, eventRows(data.exceptions), ThrowUnit, choices);
        json.endObject();
    }
}

void printGrouped(Console& console, const ReportData& data, const ReportChoices& choices) {
    bool isFirst = true;
    const auto separate = [&] {
        console.out << (isFirst ? "" : "\n");
        isFirst = false;
    };
    for (const auto& [name, profile] : objectProfiles(data, choices)) {
        if (!profile->charges.empty()) {
            separate();
            printEstimate(console, *profile);
            printGroups(console, *profile, eventRows(*profile), eventUnit(*profile), choices);
        }
    }
    if (choices.monitors && !data.monitors.uses.empty()) {
        separate();
        printGroups(console, data.profile, eventRows(data.monitors), WaitUnit, choices);
    }
    if (choices.exceptions && !data.exceptions.empty()) {
        separate();
        printGroups(console, data.profile, eventRows(data.exceptions), ThrowUnit, choices);
    }
}

void writeJson(Console& console, const DataSource& source, const ReportData& data,
               const ReportChoices& choices) {
    JsonWriter json(console.out, true);
    beginDocument(json, "vdk.report/1").field("source", source.name);
    json.field("session", source.session).field("live", source.live).key("captureTimeMs");
    source.live ? json.nullValue() : json.value(source.captureTimeMs);
    if (choices.by != Grouping::None) {
        writeGrouped(json, data, choices);
        json.endObject();
        console.out << "\n";
        return;
    }
    if (choices.methods || choices.tree) {
        writeReport(json, data.profile, choices);
    }
    for (const auto& [name, profile] : objectProfiles(data, choices)) {
        json.key(name).beginObject();
        writeReport(json, *profile, ofAllocations(choices));
        json.endObject();
    }
    if (choices.monitors) {
        writeMonitors(json, data.profile, data.monitors, choices);
    }
    if (choices.exceptions) {
        writeExceptions(json, data.profile, data.exceptions, data.exceptionsByCalls, choices);
    }
    json.endObject();
    console.out << "\n";
}

// Without --show only what there is, so that a report on CPU times stays one.
void printText(Console& console, const ReportData& data, const ReportChoices& choices) {
    if (choices.by != Grouping::None) {
        printGrouped(console, data, choices);
        return;
    }
    const bool hasCpu = choices.methods || choices.tree;
    if (hasCpu) {
        printReport(console, data.profile, choices);
    }
    for (const auto& [name, profile] : objectProfiles(data, choices)) {
        if (!profile->charges.empty()) {
            console.out << (hasCpu ? "\n" : "");
            printReport(console, *profile, ofAllocations(choices));
        }
    }
    if (choices.monitors && !data.monitors.uses.empty()) {
        console.out << (hasCpu ? "\n" : "");
        printMonitors(console, data.profile, data.monitors, choices);
    }
    if (choices.exceptions && !data.exceptions.empty()) {
        console.out << (hasCpu ? "\n" : "");
        printExceptions(console, data.profile, data.exceptions, data.exceptionsByCalls, choices);
    }
}

} // namespace

int runReport(Console& console, const Arguments& arguments) {
    const ReportChoices choices = choicesOf(arguments);
    DataSource source = openData(arguments.text("SOURCE"), arguments,
                                 CpuTables | AllocationTables | MonitorTables | ExceptionTables);
    ReportData data;
    data.profile = makeProfile(source.database());
    data.allocations = makeAllocationProfile(source.database());
    data.knowsLive = knowsLiveObjects(source.database());
    if (choices.live) {
        data.live = makeAllocationProfile(source.database(), Recorded::Live);
    }
    if (choices.garbage) {
        data.garbage = makeAllocationProfile(source.database(), Recorded::Garbage);
    }
    data.monitors = readMonitors(source.database(), data.profile);
    data.exceptions = readExceptions(source.database(), data.profile);
    data.exceptionsByCalls = areCountedByCalls(source.database());
    if (!arguments.has("--raw-names")) {
        mergeGeneratedNames(data.profile);
        mergeGeneratedNames(data.allocations);
        mergeGeneratedNames(data.live);
        mergeGeneratedNames(data.garbage);
    }
    const bool hasCpu = choices.methods || choices.tree;
    if (hasCpu && data.profile.total() == 0) {
        console.note(withoutCpuData(source));
    }
    if (!hasCpu && choices.allocations && data.allocations.charges.empty()) {
        console.note(withoutAllocations(source));
    }
    if (choices.live && data.live.charges.empty()) {
        console.note(withoutObjects(source, data.knowsLive, "lives"));
    }
    if (choices.garbage && data.garbage.charges.empty()) {
        console.note(withoutObjects(source, data.knowsLive, "has ended"));
    }
    if (!hasCpu && choices.monitors && data.monitors.uses.empty()) {
        console.note(withoutMonitors(source));
    }
    if (!hasCpu && choices.exceptions && data.exceptions.empty()) {
        console.note(withoutExceptions(source));
    }
    if (console.json) {
        writeJson(console, source, data, choices);
        return 0;
    }
    console.note(std::string(source.live ? "Live: " : "Snapshot: ") + source.name + ", session " +
                 printable(source.session));
    printText(console, data, choices);
    return 0;
}

} // namespace vdk
