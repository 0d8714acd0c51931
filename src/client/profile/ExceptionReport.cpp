#include "client/profile/ExceptionReport.h"

#include "client/console/Text.h"
#include "client/profile/EventTree.h"
#include "client/profile/GeneratedNames.h"
#include "db/DB.h"

#include <cstring>

namespace vdk {

namespace {

const char RoadProperty[] = "vdk.exceptions.counted.by.calls";
const TreeUnit Throws = {formatCount, "count", false};

struct ThrowSums {
    int64_t count = 0, uncaught = 0;
};

using Site = std::pair<std::string, std::string>; // method and class of exception

struct AllSums {
    AllSums(const Profile& profile, const std::vector<ThrownRow>& rows,
            const ReportChoices& choices) {
        std::vector<std::string> names;
        for (const ThrownRow& row : rows) {
            names.push_back(row.thread);
        }
        const PoolNames pool(names);
        for (const ThrownRow& row : rows) {
            for (ThrowSums* sums :
                 {&all, &classes[row.className], &threads[row.thread], &pools[pool(row.thread)],
                  &throwers[{frameName(profile, row.throwFrame, choices), row.className}]}) {
                sums->count += row.count;
                sums->uncaught += row.catchFrame == 0 ? row.count : 0;
            }
            if (row.catchFrame != 0) {
                catchers[{frameName(profile, row.catchFrame, choices), row.className}].count +=
                    row.count;
            }
            charges.push_back({0, row.throwFrame, row.count, 0});
        }
    }

    ThrowSums all;
    std::map<std::string, ThrowSums> classes, threads, pools;
    std::map<Site, ThrowSums> throwers, catchers;
    std::vector<Charge> charges;
};

const auto countOf = [](const ThrowSums& sums) { return sums.count; };

void printNames(Console& console, const char* title, const std::map<std::string, ThrowSums>& sums,
                const ReportChoices& choices) {
    TextTable table({{"COUNT", TextTable::Right}, {"UNCAUGHT", TextTable::Right}, {title}});
    for (const auto& [name, sum] : heaviest(sums, choices.top, countOf)) {
        table.add({formatCount(sum.count), formatCount(sum.uncaught), printable(name)});
    }
    table.print(console);
    noteRest(console, sums.size(), choices.top);
    console.out << "\n";
}

void printSites(Console& console, const char* title, const std::map<Site, ThrowSums>& sums,
                const ReportChoices& choices) {
    if (sums.empty()) {
        return;
    }
    TextTable table({{"COUNT", TextTable::Right}, {title}, {"EXCEPTION"}});
    for (const auto& [site, sum] : heaviest(sums, choices.top, countOf)) {
        table.add({formatCount(sum.count), printable(site.first), printable(site.second)});
    }
    table.print(console);
    noteRest(console, sums.size(), choices.top);
    console.out << "\n";
}

void writeNames(JsonWriter& json, const char* key, const char* nameKey,
                const std::map<std::string, ThrowSums>& sums, const ReportChoices& choices) {
    json.key(key).beginArray();
    for (const auto& [name, sum] : heaviest(sums, choices.top, countOf)) {
        json.beginObject().field(nameKey, name).field("count", sum.count);
        json.field("uncaught", sum.uncaught).endObject();
    }
    json.endArray();
}

void writeSites(JsonWriter& json, const char* key, const std::map<Site, ThrowSums>& sums,
                const ReportChoices& choices) {
    json.key(key).beginArray();
    for (const auto& [site, sum] : heaviest(sums, choices.top, countOf)) {
        json.beginObject().field("name", site.first).field("class", site.second);
        json.field("count", sum.count).endObject();
    }
    json.endArray();
}

} // namespace

bool areCountedByCalls(DB& db) {
    bool result = false;
    db.propertyTable->eachRecord([&](int, const PropertyRecord& record) {
        const char* name = db.stringPool->getText(record.nameStrID);
        result = result ||
                 (record.stamp > 0 && record.value != 0 && name && strcmp(name, RoadProperty) == 0);
    });
    return result;
}

std::vector<ThrownRow> readExceptions(DB& db, const Profile& profile) {
    std::map<int, const ProfileThread*> threads;
    for (const ProfileThread& thread : profile.threads) {
        threads[thread.trn] = &thread;
    }
    const auto known = [&](int frame) { return size_t(frame) < profile.frames.size() ? frame : 0; };
    std::vector<ThrownRow> rows;
    db.exceptionTable->eachRecord([&](int, const ExceptionRecord& record) {
        if (record.stamp <= 0 || record.count <= 0) {
            return; // its exceptions were caught elsewhere in the end
        }
        const char* className = db.stringPool->getText(record.classNameStrID);
        const auto thread = threads.find(record.trn);
        const bool isThreadKnown = thread != threads.end();
        rows.push_back(
            {cleanFrameName(className ? className : "<unknown>"),
             isThreadKnown ? thread->second->name : "<thread " + std::to_string(record.trn) + ">",
             known(record.throwFrame), known(record.catchFrame), record.count,
             isThreadKnown ? thread->second->group : "", record.trn});
    });
    return rows;
}

std::vector<EventRow> eventRows(const std::vector<ThrownRow>& rows) {
    std::vector<EventRow> events;
    for (const ThrownRow& row : rows) {
        events.push_back({"", row.className, row.thread, row.throwFrame, row.throwFrame, row.count,
                          0, row.group, row.trn});
    }
    return events;
}

void printExceptions(Console& console, const Profile& profile, const std::vector<ThrownRow>& rows,
                     bool byCalls, const ReportChoices& choices) {
    const AllSums sums(profile, rows, choices);
    console.out << console.styled("Exceptions", "1") << " (" << sums.all.count
                << (byCalls ? " created, " : " thrown, ") << sums.all.uncaught
                << (byCalls ? " not caught by rewritten classes; by inserted calls" : " not caught")
                << ")\n";
    printNames(console, "EXCEPTION", sums.classes, choices);
    printNames(console, "THREAD", sums.pools, choices);
    printSites(console, byCalls ? "CREATED IN" : "THROWN IN", sums.throwers, choices);
    printSites(console, "CAUGHT IN", sums.catchers, choices);
    const CallTree tree = makeCallTree(profile, sums.charges, {choices.filters});
    console.out << console.styled(byCalls ? "Where exceptions were created"
                                          : "Where exceptions were thrown",
                                  "1")
                << " (" << tree.total() << ")\n";
    printEventTree(console, profile, tree, choices, Throws);
}

void writeExceptions(JsonWriter& json, const Profile& profile, const std::vector<ThrownRow>& rows,
                     bool byCalls, const ReportChoices& choices) {
    const AllSums sums(profile, rows, choices);
    json.key("exceptions").beginObject().field("road", byCalls ? "calls" : "events");
    json.field("count", sums.all.count).field("uncaught", sums.all.uncaught);
    writeNames(json, "classes", "class", sums.classes, choices);
    writeNames(json, "threads", "thread", sums.threads, choices);
    writeSites(json, "thrownIn", sums.throwers, choices);
    writeSites(json, "caughtIn", sums.catchers, choices);
    json.key("tree").beginArray();
    writeEventTree(json, profile, makeCallTree(profile, sums.charges, {choices.filters}), choices,
                   Throws);
    json.endArray().endObject();
}

} // namespace vdk
