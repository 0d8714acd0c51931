#include "client/profile/MonitorReport.h"

#include "client/console/Text.h"
#include "client/profile/EventTree.h"
#include "client/profile/GeneratedNames.h"
#include "db/DB.h"

#include <array>
#include <tuple>

namespace vdk {

namespace {

const TreeUnit Time = {formatNs, "timeNs", true};

struct WaitSums {
    int64_t blockedNs = 0, blocks = 0; // for a monitor that another thread held
    int64_t waitNs = 0, waits = 0;     // in Object.wait()

    void add(const MonitorUse& use) {
        (use.inWait ? waitNs : blockedNs) += use.timeNs;
        (use.inWait ? waits : blocks) += use.count;
    }
};

// Blocked time is what a user looks for; waiting for work is no trouble.
bool operator>(const WaitSums& a, const WaitSums& b) {
    return std::tie(a.blockedNs, a.waitNs) > std::tie(b.blockedNs, b.waitNs);
}

using Thread = std::pair<int, std::string>; // number and name
using Pair = std::tuple<Thread, Thread, std::string>;

struct AllSums {
    explicit AllSums(const MonitorUses& monitors) {
        std::vector<std::string> names;
        for (const MonitorUse& use : monitors.uses) {
            names.push_back(use.waiter);
            names.push_back(use.owner);
        }
        const PoolNames pool(names);
        for (const MonitorUse& use : monitors.uses) {
            const Thread waiter = {use.waiterTrn, use.waiter};
            const Thread owner = {use.ownerTrn, use.owner};
            all.add(use);
            classes[use.className].add(use);
            waiters[waiter].add(use);
            waiterPools[pool(use.waiter)].add(use);
            (use.inWait ? waitCharges : blockedCharges)
                .push_back({0, use.frame, use.timeNs, use.count});
            if (!use.inWait) {
                owners[owner].add(use);
                pairs[{waiter, owner, use.className}].add(use);
                poolPairs[{pool(use.waiter), pool(use.owner), use.className}].add(use);
            }
        }
    }

    WaitSums all;
    std::map<std::string, WaitSums> classes;
    std::map<Thread, WaitSums> waiters, owners;
    std::map<Pair, WaitSums> pairs;
    // For people: threads of a pool together.
    std::map<std::string, WaitSums> waiterPools;
    std::map<std::array<std::string, 3>, WaitSums> poolPairs; // waiter, owner, class
    std::vector<Charge> blockedCharges, waitCharges;
};

const auto sameSums = [](const WaitSums& sums) -> const WaitSums& { return sums; };

std::string threadName(DB& db, int trn, const std::map<int, int>& rowOfTrn) {
    auto found = rowOfTrn.find(trn);
    const char* name = found == rowOfTrn.end() ? nullptr : db.stringPool->getText(found->second);
    return name ? name : "<thread " + std::to_string(trn) + ">";
}

// The oldest threads that ended are one waiter; who held the monitor is kept, so that only the
// stack tells of them whether they were in Object.wait().
bool isInWait(const MonitorUse& use, const Profile& profile) {
    if (use.ownerTrn == use.waiterTrn) {
        return true;
    }
    const int frame = shownFrame(profile, use.frame);
    const ProfileMethod& method = profile.methods[size_t(profile.frames[size_t(frame)].method)];
    return startsWith(use.waiter, "<Oldest finished") && method.className == "java.lang.Object" &&
           startsWith(method.name, "wait");
}

// The two halves are stored as properties.
int64_t readDuration(DB& db) {
    auto half = [&](const char* name, bool& known) {
        const int nameRow = db.stringPool->getDBIndex(
            (std::string("vdk.monitor.profiling.duration.ns.") + name).c_str(), false);
        const int row = nameRow == 0 ? -1 : db.findPropertyRecordIndex(nameRow);
        known = row >= 0;
        return known ? db.propertyTable->getRecord(row, true)->value : 0;
    };
    bool knowsLow = false, knowsHigh = false;
    const uint32_t low = uint32_t(half("low", knowsLow));
    const int64_t high = half("high", knowsHigh);
    return knowsLow && knowsHigh ? int64_t(uint64_t(high) << 32 | low) : -1;
}

void printList(Console& console, const char* title, const std::map<std::string, WaitSums>& sums,
               const ReportChoices& choices) {
    TextTable table({{"BLOCKED", TextTable::Right},
                     {"TIMES", TextTable::Right},
                     {"IN WAIT()", TextTable::Right},
                     {"TIMES", TextTable::Right},
                     {title}});
    for (const auto& [name, sum] : heaviest(sums, choices.top, sameSums)) {
        table.add({formatNs(sum.blockedNs), std::to_string(sum.blocks), formatNs(sum.waitNs),
                   std::to_string(sum.waits), printable(name)});
    }
    table.print(console);
    noteRest(console, sums.size(), choices.top);
    console.out << "\n";
}

void printPairs(Console& console, const AllSums& sums, const ReportChoices& choices) {
    if (sums.pairs.empty()) {
        return;
    }
    TextTable table({{"BLOCKED", TextTable::Right},
                     {"TIMES", TextTable::Right},
                     {"WAITER"},
                     {"OWNER"},
                     {"MONITOR"}});
    for (const auto& [pair, sum] : heaviest(sums.poolPairs, choices.top, sameSums)) {
        table.add({formatNs(sum.blockedNs), std::to_string(sum.blocks), printable(pair[0]),
                   printable(pair[1]), printable(pair[2])});
    }
    table.print(console);
    noteRest(console, sums.poolPairs.size(), choices.top);
    console.out << "\n";
}

void printWhere(Console& console, const char* title, const Profile& profile,
                const std::vector<Charge>& charges, const ReportChoices& choices) {
    if (charges.empty()) {
        return;
    }
    const CallTree tree = makeCallTree(profile, charges, {choices.filters});
    console.out << console.styled(title, "1") << " (" << formatNs(tree.total()) << ")\n";
    printEventTree(console, profile, tree, choices, Time);
    console.out << "\n";
}

void writeSums(JsonWriter& json, const WaitSums& sums) {
    json.field("blockedNs", sums.blockedNs).field("blocks", sums.blocks);
    json.field("waitNs", sums.waitNs).field("waits", sums.waits);
}

void writeThreads(JsonWriter& json, const char* key, const std::map<Thread, WaitSums>& sums,
                  const ReportChoices& choices) {
    json.key(key).beginArray();
    for (const auto& [thread, sum] : heaviest(sums, choices.top, sameSums)) {
        json.beginObject().field("thread", thread.second).field("trn", thread.first);
        writeSums(json, sum);
        json.endObject();
    }
    json.endArray();
}

void writeTree(JsonWriter& json, const char* key, const Profile& profile,
               const std::vector<Charge>& charges, const ReportChoices& choices) {
    json.key(key).beginArray();
    writeEventTree(json, profile, makeCallTree(profile, charges, {choices.filters}), choices, Time);
    json.endArray();
}

} // namespace

MonitorUses readMonitors(DB& db, const Profile& profile) {
    MonitorUses monitors;
    std::map<int, int> nameOfTrn;
    db.threadTable->eachRecord([&](int, const ThreadRecord& record) {
        if (record.stamp > 0) {
            nameOfTrn[record.trn] = record.nameStrID;
        }
    });
    db.monitorTable->eachRecord([&](int, const MonitorRecord& record) {
        if (record.stamp <= 0 || record.count <= 0) {
            return; // a wait that has only begun
        }
        MonitorUse use;
        const char* className = db.stringPool->getText(record.classNameStrID);
        use.className = cleanFrameName(className ? className : "<unknown>");
        use.waiterTrn = record.waiterTRN;
        use.ownerTrn = record.ownerTRN;
        use.waiter = threadName(db, record.waiterTRN, nameOfTrn);
        use.owner = threadName(db, record.ownerTRN, nameOfTrn);
        use.frame = size_t(record.frame) < profile.frames.size() ? record.frame : 0;
        use.timeNs = record.timeNs;
        use.count = record.count;
        use.inWait = isInWait(use, profile);
        monitors.uses.push_back(use);
    });
    monitors.recordedNs = readDuration(db);
    return monitors;
}

void printMonitors(Console& console, const Profile& profile, const MonitorUses& monitors,
                   const ReportChoices& choices) {
    const AllSums sums(monitors);
    console.out << console.styled("Monitors", "1") << " (blocked " << formatNs(sums.all.blockedNs)
                << ", in Object.wait() " << formatNs(sums.all.waitNs);
    if (monitors.recordedNs >= 0) {
        console.out << ", recorded for " << formatNs(monitors.recordedNs);
    }
    console.out << ")\n";
    printList(console, "MONITOR", sums.classes, choices);
    printList(console, "WAITING THREAD", sums.waiterPools, choices);
    printPairs(console, sums, choices);
    printWhere(console, "Where threads were blocked", profile, sums.blockedCharges, choices);
    printWhere(console, "Where threads were in Object.wait()", profile, sums.waitCharges, choices);
}

void writeMonitors(JsonWriter& json, const Profile& profile, const MonitorUses& monitors,
                   const ReportChoices& choices) {
    const AllSums sums(monitors);
    json.key("monitors").beginObject().key("recordedNs");
    monitors.recordedNs < 0 ? json.nullValue() : json.value(monitors.recordedNs);
    writeSums(json, sums.all);
    json.key("classes").beginArray();
    for (const auto& [className, sum] : heaviest(sums.classes, choices.top, sameSums)) {
        json.beginObject().field("class", className);
        writeSums(json, sum);
        json.endObject();
    }
    json.endArray();
    writeThreads(json, "waiters", sums.waiters, choices);
    writeThreads(json, "owners", sums.owners, choices);
    json.key("pairs").beginArray();
    for (const auto& [pair, sum] : heaviest(sums.pairs, choices.top, sameSums)) {
        json.beginObject();
        json.field("waiter", std::get<0>(pair).second).field("waiterTrn", std::get<0>(pair).first);
        json.field("owner", std::get<1>(pair).second).field("ownerTrn", std::get<1>(pair).first);
        json.field("class", std::get<2>(pair));
        json.field("blockedNs", sum.blockedNs).field("blocks", sum.blocks).endObject();
    }
    json.endArray();
    writeTree(json, "blockedTree", profile, sums.blockedCharges, choices);
    writeTree(json, "waitTree", profile, sums.waitCharges, choices);
    json.endObject();
}

} // namespace vdk
