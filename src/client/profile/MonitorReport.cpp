#include "client/profile/MonitorReport.h"

#include "client/console/Text.h"
#include "client/profile/EventTree.h"
#include "client/profile/GeneratedNames.h"
#include "db/DB.h"
#include "db/WaitKinds.h"

#include <array>
#include <tuple>

namespace vdk {

namespace {

const TreeUnit Time = {formatNs, "timeNs", true};

struct KindNames {
    const char* title; // column
    const char* phrase;
    const char* where; // title of a tree
    const char* ns;    // fields in JSON
    const char* count;
    const char* tree;
};

// By WaitKind.
const std::array<KindNames, 4> Kinds = {{
    {"BLOCKED", "blocked", "Where threads were blocked", "blockedNs", "blocks", "blockedTree"},
    {"IN WAIT()", "in Object.wait()", "Where threads were in Object.wait()", "waitNs", "waits",
     "waitTree"},
    {"FOR OTHERS", "parked for others", "Where threads were parked for others", "forOthersNs",
     "forOthers", "forOthersTree"},
    {"FOR WORK", "parked for work", "Where threads were parked for work", "forWorkNs", "forWork",
     "forWorkTree"},
}};
constexpr size_t MonitorKinds = 2; // the others come from locks

struct WaitSums {
    std::array<int64_t, Kinds.size()> ns = {}, count = {};

    void add(const MonitorUse& use) {
        ns[size_t(use.kind)] += use.timeNs;
        count[size_t(use.kind)] += use.count;
    }
    int64_t blockedNs() const { return ns[size_t(WaitKind::Blocked)]; }
    int64_t blocks() const { return count[size_t(WaitKind::Blocked)]; }
};

// Blocked time is what a user looks for, then what others keep threads waiting; waiting for work is
// no trouble.
bool operator>(const WaitSums& a, const WaitSums& b) {
    auto rank = [](const WaitSums& sums) {
        return std::make_tuple(sums.blockedNs(), sums.ns[size_t(WaitKind::ForOthers)],
                               sums.ns[size_t(WaitKind::InWait)],
                               sums.ns[size_t(WaitKind::ForWork)]);
    };
    return rank(a) > rank(b);
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
            charges[size_t(use.kind)].push_back({0, use.frame, use.timeNs, use.count});
            if (use.kind == WaitKind::Blocked) {
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
    std::array<std::vector<Charge>, Kinds.size()> charges;
};

const auto sameSums = [](const WaitSums& sums) -> const WaitSums& { return sums; };

// The JVM does not name a virtual thread that holds a monitor.
const char UnknownOwner[] = "<unknown, maybe virtual>";

std::string threadName(DB& db, int trn, const std::map<int, int>& rowOfTrn) {
    if (trn == 0) {
        return UnknownOwner;
    }
    auto found = rowOfTrn.find(trn);
    const char* name = found == rowOfTrn.end() ? nullptr : db.stringPool->getText(found->second);
    return name ? name : "<thread " + std::to_string(trn) + ">";
}

const ProfileMethod& methodOf(const Profile& profile, int frame) {
    return profile.methods[size_t(profile.frames[size_t(frame)].method)];
}

bool isPark(const ProfileMethod& method) {
    return method.className == "jdk.internal.misc.Unsafe";
}

// What locks and queues have in common below their own methods.
bool isLockMachinery(const ProfileMethod& method) {
    static const char* const begins[] = {"java.util.concurrent.locks.LockSupport",
                                         "java.util.concurrent.locks.Abstract"};
    for (const char* text : begins) {
        if (startsWith(method.className, text)) {
            return true;
        }
    }
    const bool isSync =
        startsWith(method.className, "java.util.concurrent.") && endsWith(method.className, "Sync");
    return isPark(method) || isSync || endsWith(method.name, "managedBlock");
}

// The frame that uses the lock: ReentrantLock.lock, LinkedBlockingQueue.take. The program's own
// calls of what is below that stay as well.
int frameOfLock(const Profile& profile, int frame) {
    int last = frame;
    while (frame > 0 && isLockMachinery(methodOf(profile, frame))) {
        last = frame;
        frame = profile.frames[size_t(frame)].parent;
    }
    return frame > 0 && startsWith(methodOf(profile, frame).className, "java.util.concurrent.")
               ? frame
               : last;
}

// The oldest threads that ended are one waiter; who held the monitor is kept, so that of them only
// the stack and the class tell what they did.
WaitKind kindOf(const MonitorUse& use, const ProfileMethod& innermost) {
    const bool isMerged = startsWith(use.waiter, "<Oldest finished");
    if (isPark(innermost)) {
        if (use.ownerTrn == use.waiterTrn ||
            (isMerged && isBlockerOfIdleThreads(use.className.c_str()))) {
            return WaitKind::ForWork;
        }
        return use.ownerTrn == 0 ? WaitKind::ForOthers : WaitKind::Blocked;
    }
    const bool isWait =
        isMerged && innermost.className == "java.lang.Object" && startsWith(innermost.name, "wait");
    return isWait || use.ownerTrn == use.waiterTrn ? WaitKind::InWait : WaitKind::Blocked;
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

// The kinds that a list has columns for: those of locks only where there are any.
size_t shownKinds(const WaitSums& all) {
    for (size_t kind = MonitorKinds; kind < Kinds.size(); kind++) {
        if (all.count[kind] != 0) {
            return Kinds.size();
        }
    }
    return MonitorKinds;
}

void printList(Console& console, const char* title, const std::map<std::string, WaitSums>& sums,
               size_t kinds, const ReportChoices& choices) {
    std::vector<TextTable::Column> columns;
    for (size_t kind = 0; kind < kinds; kind++) {
        columns.push_back({Kinds[kind].title, TextTable::Right});
        columns.push_back({"TIMES", TextTable::Right});
    }
    columns.push_back({title});
    TextTable table(columns);
    for (const auto& [name, sum] : heaviest(sums, choices.top, sameSums)) {
        std::vector<std::string> row;
        for (size_t kind = 0; kind < kinds; kind++) {
            row.push_back(formatNs(sum.ns[kind]));
            row.push_back(std::to_string(sum.count[kind]));
        }
        row.push_back(printable(name));
        table.add(row);
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
        table.add({formatNs(sum.blockedNs()), std::to_string(sum.blocks()), printable(pair[0]),
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
    for (size_t kind = 0; kind < Kinds.size(); kind++) {
        json.field(Kinds[kind].ns, sums.ns[kind]).field(Kinds[kind].count, sums.count[kind]);
    }
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
    std::map<int, std::string> groupOfTrn;
    for (const ProfileThread& thread : profile.threads) {
        groupOfTrn[thread.trn] = thread.group;
    }
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
        use.waiterGroup = groupOfTrn[record.waiterTRN];
        use.owner = threadName(db, record.ownerTRN, nameOfTrn);
        use.frame = size_t(record.frame) < profile.frames.size() ? record.frame : 0;
        use.timeNs = record.timeNs;
        use.count = record.count;
        const ProfileMethod& innermost = methodOf(profile, shownFrame(profile, use.frame));
        use.kind = kindOf(use, innermost);
        if (isPark(innermost)) {
            use.frame = frameOfLock(profile, use.frame);
        }
        monitors.uses.push_back(use);
    });
    monitors.recordedNs = readDuration(db);
    return monitors;
}

std::vector<EventRow> eventRows(const MonitorUses& monitors) {
    std::vector<EventRow> rows;
    for (const MonitorUse& use : monitors.uses) {
        rows.push_back({Kinds[size_t(use.kind)].phrase, use.className, use.waiter, use.frame,
                        use.frame, use.timeNs, use.count, use.waiterGroup, use.waiterTrn});
    }
    return rows;
}

void printMonitors(Console& console, const Profile& profile, const MonitorUses& monitors,
                   const ReportChoices& choices) {
    const AllSums sums(monitors);
    const size_t kinds = shownKinds(sums.all);
    console.out << console.styled("Monitors", "1") << " (blocked " << formatNs(sums.all.blockedNs())
                << ", in Object.wait() " << formatNs(sums.all.ns[size_t(WaitKind::InWait)]);
    if (kinds > MonitorKinds) {
        console.out << ", parked for others " << formatNs(sums.all.ns[size_t(WaitKind::ForOthers)])
                    << ", parked for work " << formatNs(sums.all.ns[size_t(WaitKind::ForWork)]);
    }
    if (monitors.recordedNs >= 0) {
        console.out << ", recorded for " << formatNs(monitors.recordedNs);
    }
    console.out << ")\n";
    printList(console, "MONITOR", sums.classes, kinds, choices);
    printList(console, "WAITING THREAD", sums.waiterPools, kinds, choices);
    printPairs(console, sums, choices);
    for (size_t kind = 0; kind < Kinds.size(); kind++) {
        printWhere(console, Kinds[kind].where, profile, sums.charges[kind], choices);
    }
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
        json.field("blockedNs", sum.blockedNs()).field("blocks", sum.blocks()).endObject();
    }
    json.endArray();
    for (size_t kind = 0; kind < Kinds.size(); kind++) {
        writeTree(json, Kinds[kind].tree, profile, sums.charges[kind], choices);
    }
    json.endObject();
}

} // namespace vdk
