#include "client/commands/Commands.h"
#include "client/commands/DataFile.h"
#include "client/commands/SelectionArguments.h"
#include "client/commands/Sources.h"
#include "client/commands/WhyEmpty.h"
#include "client/console/Text.h"
#include "client/profile/EventData.h"
#include "client/profile/ExceptionReport.h"
#include "client/profile/GeneratedNames.h"
#include "client/profile/J2eeReport.h"
#include "client/profile/MonitorReport.h"

#include <array>

namespace vdk {

namespace {

// Stacks that are turned round make trees of CPU times and of allocations.
void restrictToCallers(ReportChoices& choices, const std::string& show) {
    const bool isOfOthers = show == "monitors" || show == "exceptions" || show == "j2ee";
    if (isOfOthers || show == "methods" || choices.by != Grouping::None) {
        throw ClientError(ExitCode::Usage, "usage",
                          "--callers shows trees of CPU times, allocations, live objects or "
                          "garbage, and goes with neither --by nor --show " +
                              (isOfOthers ? show : "methods"));
    }
    choices.methods = choices.monitors = choices.exceptions = choices.j2ee = false;
}

ReportChoices choicesOf(const Arguments& arguments) {
    ReportChoices choices;
    const std::string show = arguments.text("--show", "all");
    const bool all = show == "all";
    choices.by = groupingOf(arguments.text("--by"));
    const bool isGrouped = choices.by != Grouping::None;
    if (isGrouped && (show == "methods" || show == "tree" || show == "j2ee")) {
        throw ClientError(
            ExitCode::Usage, "usage",
            "--show " + show + " is one list already; --by groups those of the others",
            show == "j2ee"
                ? ""
                : "`--show cpu --by " + std::string(show == "tree" ? show : "method") + "`");
    }
    choices.methods = all || show == "methods" || show == "cpu";
    choices.tree = all || show == "tree" || show == "cpu";
    choices.live = show == "live";
    choices.garbage = show == "garbage";
    choices.allocations = all || show == "allocations";
    choices.monitors = all || show == "monitors";
    choices.exceptions = all || show == "exceptions";
    choices.j2ee = all || show == "j2ee";
    if (arguments.has("--callers")) {
        restrictToCallers(choices, show);
    }
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

    std::array<Profile*, 4> profiles() { return {&profile, &allocations, &live, &garbage}; }
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

void writeHead(JsonWriter& json, const DataSource& source) {
    json.field("source", source.name);
    json.field("session", source.session).field("live", source.live).key("captureTimeMs");
    source.live ? json.nullValue() : json.value(source.captureTimeMs);
}

void noteSource(Console& console, const DataSource& source) {
    console.note(std::string(source.live ? "Live: " : "Snapshot: ") + source.name + ", session " +
                 printable(source.session));
}

// With --by: what --show names, each as one list.
std::vector<Shown> shownIn(const std::string& show) {
    if (show == "all") {
        return {Shown::Cpu, Shown::Allocations, Shown::Monitors, Shown::Exceptions};
    }
    for (const ShownName& name : shownNames()) {
        if (show == name.option) {
            return {name.what};
        }
    }
    return {};
}

void reportGroups(Console& console, DataSource& source, const Arguments& arguments,
                  const ReportChoices& choices) {
    std::vector<EventData> lists;
    for (Shown what : shownIn(arguments.text("--show", "all"))) {
        lists.push_back(readEvents(source.database(), what, !arguments.has("--raw-names"),
                                   selectionOf(arguments)));
        if (lists.size() == 1) {
            noteUnmatched(console, lists.back().unmatched);
        }
        if (lists.back().rows.empty() && (what == Shown::Cpu || arguments.has("--show"))) {
            console.note(whyEmpty(what, source, lists.back().isKnown));
        }
    }
    if (console.json) {
        JsonDocument json(console, "vdk.report/1");
        writeHead(json, source);
        for (const EventData& data : lists) {
            json.key(nameOf(data.what).field).beginObject();
            if (data.profile.measure->isOfObjects()) {
                writeEstimate(json, data.profile);
            }
            writeGroups(json, data.profile, data.rows, data.unit, choices);
            json.endObject();
        }
        json.end();
        return;
    }
    noteSource(console, source);
    bool isFirst = true;
    for (const EventData& data : lists) {
        if (!data.rows.empty()) {
            console.out << (isFirst ? "" : "\n");
            isFirst = false;
            printEstimate(console, data.profile);
            printGroups(console, data.profile, data.rows, data.unit, choices);
        }
    }
}

void writeJson(Console& console, const DataSource& source, const ReportData& data,
               const ReportChoices& choices) {
    JsonDocument json(console, "vdk.report/1");
    writeHead(json, source);
    if (choices.methods || choices.tree) {
        writeReport(json, data.profile, choices);
    }
    if (choices.j2ee) {
        writeJ2ee(json, data.profile, choices);
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
    json.end();
}

// Without --show only what there is, so that a report on CPU times stays one.
void printText(Console& console, const ReportData& data, const ReportChoices& choices) {
    const bool hasCpu = choices.methods || choices.tree;
    if (hasCpu) {
        printReport(console, data.profile, choices);
    }
    if (choices.j2ee && !data.profile.j2ee.empty()) {
        console.out << (hasCpu ? "\n" : "");
        printJ2ee(console, data.profile, choices);
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

ReportData readData(DB& db, const ReportChoices& choices, bool mergeNames) {
    ReportData data;
    data.profile = makeProfile(db);
    data.allocations = makeAllocationProfile(db);
    data.knowsLive = knowsLiveObjects(db);
    if (choices.live) {
        data.live = makeAllocationProfile(db, Recorded::Live);
    }
    if (choices.garbage) {
        data.garbage = makeAllocationProfile(db, Recorded::Garbage);
    }
    data.monitors = readMonitors(db, data.profile);
    data.exceptions = readExceptions(db, data.profile);
    data.exceptionsByCalls = areCountedByCalls(db);
    if (mergeNames) {
        for (Profile* profile : data.profiles()) {
            mergeGeneratedNames(*profile);
        }
    }
    return data;
}

// Leaves what the options choose, and turns it round for --callers.
void choose(Console& console, ReportData& data, const Arguments& arguments) {
    const Selection selection = selectionOf(arguments);
    if (!selection.isEmpty()) {
        const StackSelector selector(data.profile, selection);
        noteUnmatched(console, selector.findUnmatched());
        keepRows(data.monitors.uses,
                 [&](const MonitorUse& use) { return selector.keeps(use.waiter, use.frame); });
        keepRows(data.exceptions,
                 [&](const ThrownRow& row) { return selector.keeps(row.thread, row.throwFrame); });
    }
    const bool wasEmpty = data.profile.charges.empty();
    const std::vector<std::string>& callees = arguments.all("--callers");
    for (Profile* profile : data.profiles()) {
        select(*profile, selection);
        if (!callees.empty()) {
            *profile = callersOf(*profile, callees);
        }
    }
    if (!wasEmpty && data.profile.charges.empty()) {
        console.note("no stack with CPU time is left of what the options choose");
    }
}

void noteWhatIsEmpty(Console& console, const DataSource& source, const ReportData& data,
                     const ReportChoices& choices) {
    const bool hasCpu = choices.methods || choices.tree;
    if (hasCpu && data.profile.total() == 0) {
        console.note(whyEmpty(Shown::Cpu, source, true));
    }
    if (!hasCpu && choices.j2ee && data.profile.j2ee.empty()) {
        console.note(whyNoJ2ee(source));
    }
    if (!hasCpu && choices.allocations && data.allocations.charges.empty()) {
        console.note(whyEmpty(Shown::Allocations, source, true));
    }
    if (choices.live && data.live.charges.empty()) {
        console.note(whyEmpty(Shown::Live, source, data.knowsLive));
    }
    if (choices.garbage && data.garbage.charges.empty()) {
        console.note(whyEmpty(Shown::Garbage, source, data.knowsLive));
    }
    if (!hasCpu && choices.monitors && data.monitors.uses.empty()) {
        console.note(whyEmpty(Shown::Monitors, source, true));
    }
    if (!hasCpu && choices.exceptions && data.exceptions.empty()) {
        console.note(whyEmpty(Shown::Exceptions, source, true));
    }
}

} // namespace

static void report(Console& console, DataSource& source, const Arguments& arguments) {
    const ReportChoices choices = choicesOf(arguments);
    if (choices.by != Grouping::None) {
        reportGroups(console, source, arguments, choices);
        return;
    }
    ReportData data = readData(source.database(), choices, !arguments.has("--raw-names"));
    noteWhatIsEmpty(console, source, data, choices);
    choose(console, data, arguments);
    if (console.json) {
        writeJson(console, source, data, choices);
        return;
    }
    noteSource(console, source);
    printText(console, data, choices);
}

void writeReportDocument(Console& console, DataSource& source, const Arguments& arguments) {
    report(console, source, arguments);
}

int runReport(Console& console, const Arguments& arguments) {
    choicesOf(arguments); // faults of the command line come first
    DataSource source = openData(arguments.text("SOURCE"), arguments,
                                 CpuTables | AllocationTables | MonitorTables | ExceptionTables);
    report(console, source, arguments);
    return 0;
}

} // namespace vdk
