#include "client/profile/EventGroups.h"

#include "client/console/Text.h"
#include "client/profile/EventTree.h"
#include "client/profile/TreeWalk.h"

#include <algorithm>
#include <map>

namespace vdk {

namespace {

const std::pair<const char*, Grouping> Groupings[] = {
    {"method", Grouping::Method},   {"tree", Grouping::Tree},     {"class", Grouping::Class},
    {"package", Grouping::Package}, {"thread", Grouping::Thread}, {"group", Grouping::Group},
    {"line", Grouping::Line},
};

std::string className(const Profile& profile, int frame) {
    const int shown = shownFrame(profile, frame);
    const std::string& name =
        profile.methods[size_t(profile.frames[size_t(shown)].method)].className;
    return shown == 0 || name.empty() ? "-" : name;
}

// Of the method that spent, allocated, waited or threw.
std::string packageName(const Profile& profile, int frame) {
    const std::string name = className(profile, frame);
    const size_t dot = name.rfind('.');
    return dot != std::string::npos ? name.substr(0, dot) : name == "-" ? name : "(no package)";
}

// A line is that of the row's own method, and of none that a filter charges in its place.
std::string lineName(const Profile& profile, const EventRow& row, const ReportChoices& choices) {
    const std::string name = frameName(profile, row.frame, choices);
    const ProfileMethod& method = profile.methods[size_t(profile.frames[size_t(row.frame)].method)];
    const bool isOwn = !method.isHidden() && !(choices.filters && method.isFiltered());
    return name + (row.line > 0 && isOwn ? ":" + std::to_string(row.line) : ":unknown");
}

std::string groupName(const Profile& profile, const EventRow& row, const ReportChoices& choices) {
    switch (choices.by) {
    case Grouping::Class:
        return row.className;
    case Grouping::Package:
        return packageName(profile, row.frame);
    case Grouping::Thread:
        return row.thread;
    case Grouping::Group:
        return row.group.empty() ? "-" : row.group;
    case Grouping::Line:
        return lineName(profile, row, choices);
    default:
        return frameName(profile, row.frame, choices);
    }
}

} // namespace

EventSum& EventSum::operator+=(const EventSum& other) {
    amount += other.amount;
    count += other.count;
    return *this;
}

std::map<std::string, EventKind> eventKinds(const Profile& profile,
                                            const std::vector<EventRow>& rows,
                                            const ReportChoices& choices, bool pools) {
    std::vector<std::string> threads;
    for (const EventRow& row : rows) {
        threads.push_back(row.thread);
    }
    const PoolNames pool(threads);
    std::map<std::string, EventKind> kinds;
    for (const EventRow& row : rows) {
        const std::string name = groupName(profile, row, choices);
        EventKind& kind = kinds[row.kind];
        const EventSum sum = {row.amount, row.count};
        kind.all += sum;
        kind.groups[pools && choices.by == Grouping::Thread ? pool(name) : name] += sum;
        kind.charges.push_back({0, row.leaf, row.amount, row.count});
    }
    return kinds;
}

TreeUnit treeUnit(const EventUnit& unit) {
    return {unit.format, unit.field, unit.countTitle != nullptr};
}

std::string groupingTitle(Grouping grouping) {
    std::string title = groupingName(grouping);
    for (char& letter : title) {
        letter = char(toupper(static_cast<unsigned char>(letter)));
    }
    return title;
}

namespace {

const auto amountOf = [](const EventSum& sum) { return sum.amount; };

void printList(Console& console, const EventKind& kind, const EventUnit& unit,
               const ReportChoices& choices) {
    std::vector<TextTable::Column> columns = {
        {unit.amountTitle, TextTable::Right},
        {std::string(unit.amountTitle) + "%", TextTable::Right}};
    if (unit.countTitle) {
        columns.push_back({unit.countTitle, TextTable::Right});
    }
    columns.push_back({groupingTitle(choices.by)});
    TextTable table(columns);
    for (const auto& [name, sum] : heaviest(kind.groups, choices.top, amountOf)) {
        std::vector<std::string> cells = {unit.format(sum.amount),
                                          formatPercent(percentOf(sum.amount, kind.all.amount))};
        if (unit.countTitle) {
            cells.push_back(formatCount(sum.count));
        }
        cells.push_back(printable(name));
        table.add(cells);
    }
    table.print(console);
    noteRest(console, kind.groups.size(), choices.top);
}

} // namespace

Grouping groupingOf(const std::string& name) {
    for (const auto& [known, grouping] : Groupings) {
        if (name == known) {
            return grouping;
        }
    }
    return Grouping::None;
}

const char* groupingName(Grouping grouping) {
    for (const auto& [name, known] : Groupings) {
        if (grouping == known) {
            return name;
        }
    }
    return "";
}

// A row each for the lines that are known, and one for the rest.
static void addLines(const Profile& profile, const Charge& charge, EventRow& row,
                     std::vector<EventRow>& rows) {
    const auto lines = profile.lines.find({charge.thread, charge.frame});
    if (lines != profile.lines.end()) {
        for (const LineTime& part : lines->second) {
            EventRow ofLine = row;
            ofLine.line = part.line;
            ofLine.amount = std::min(part.ownNs, row.amount);
            ofLine.count = 0;
            row.amount -= ofLine.amount;
            rows.push_back(std::move(ofLine));
        }
    }
    if (row.amount != 0 || row.count != 0) {
        rows.push_back(std::move(row));
    }
}

std::vector<EventRow> eventRows(const Profile& profile) {
    const bool isOfObjects = profile.measure->isOfObjects();
    std::vector<EventRow> rows;
    for (const Charge& charge : profile.charges) {
        if (charge.own == 0 && charge.count == 0) {
            continue; // all of a frame's time is its callees'
        }
        EventRow row;
        row.className =
            isOfObjects ? allocatedClass(profile, charge.frame) : className(profile, charge.frame);
        row.thread = profile.threads[size_t(charge.thread)].name;
        row.group = profile.threads[size_t(charge.thread)].group;
        row.frame = isOfObjects ? allocatingFrame(profile, charge.frame) : charge.frame;
        row.trn = profile.threads[size_t(charge.thread)].trn;
        row.leaf = charge.frame;
        row.amount = charge.own;
        row.count = charge.count;
        addLines(profile, charge, row, rows);
    }
    return rows;
}

EventUnit eventUnit(const Profile& profile) {
    if (!profile.measure->isOfObjects()) {
        if (profile.measure == &ElapsedTime) {
            return {"Elapsed times", "TIME", "timeNs", formatNs, nullptr, nullptr};
        }
        if (profile.measure == &SampleCounts) {
            return {"Samples", "SAMPLES", "samples", formatCount, nullptr, nullptr};
        }
        const bool counts = profile.hasCounts;
        return {"CPU times",
                "CPU",
                "cpuNs",
                formatNs,
                counts ? "CALLS" : nullptr,
                counts ? "calls" : nullptr};
    }
    const char* title = profile.measure == &LiveBytes      ? "Live objects"
                        : profile.measure == &GarbageBytes ? "Garbage"
                                                           : "Allocations";
    return {title, "BYTES", "bytes", formatBytes, "OBJECTS", "objects"};
}

void printGroups(Console& console, const Profile& profile, const std::vector<EventRow>& rows,
                 const EventUnit& unit, const ReportChoices& choices) {
    bool isFirst = true;
    for (const auto& [name, kind] : eventKinds(profile, rows, choices, true)) {
        console.out << (isFirst ? "" : "\n")
                    << console.styled(std::string(unit.title) + " by " + groupingName(choices.by) +
                                          (name.empty() ? "" : ", " + name),
                                      "1")
                    << " (" << unit.format(kind.all.amount) << ")\n";
        isFirst = false;
        if (choices.by == Grouping::Tree) {
            printEventTree(console, profile, makeCallTree(profile, kind.charges, {choices.filters}),
                           choices, treeUnit(unit));
        } else {
            printList(console, kind, unit, choices);
        }
    }
    const bool hasLines =
        std::any_of(rows.begin(), rows.end(), [](const EventRow& row) { return row.line > 0; });
    if (choices.by == Grouping::Line && !rows.empty() && !hasLines) {
        console.note("no lines were recorded: the agent notes those of CPU samples, with the "
                     "option samplelines");
    }
}

void writeGroups(JsonWriter& json, const Profile& profile, const std::vector<EventRow>& rows,
                 const EventUnit& unit, const ReportChoices& choices) {
    const auto writeSum = [&](const EventSum& sum) {
        json.field(unit.field, sum.amount);
        if (unit.countField) {
            json.field(unit.countField, sum.count);
        }
    };
    json.field("by", groupingName(choices.by)).key("kinds").beginArray();
    for (const auto& [name, kind] : eventKinds(profile, rows, choices, false)) {
        json.beginObject().key("kind");
        name.empty() ? json.nullValue() : json.value(name);
        writeSum(kind.all);
        json.key(choices.by == Grouping::Tree ? "tree" : "groups").beginArray();
        if (choices.by == Grouping::Tree) {
            writeEventTree(json, profile, makeCallTree(profile, kind.charges, {choices.filters}),
                           choices, treeUnit(unit));
        } else {
            for (const auto& [group, sum] : heaviest(kind.groups, choices.top, amountOf)) {
                json.beginObject().field(groupingName(choices.by), group);
                writeSum(sum);
                json.endObject();
            }
        }
        json.endArray().endObject();
    }
    json.endArray();
}

} // namespace vdk
