// The commands on threads and telemetry: from a live agent or a snapshot.
#include "client/commands/Commands.h"
#include "client/commands/Sources.h"
#include "client/console/Text.h"
#include "client/profile/Profile.h"
#include "client/profile/ThreadState.h"
#include "db/Records.h"

#include <algorithm>
#include <cstdlib>
#include <ctime>
#include <map>
#include <optional>
#include <set>

namespace vdk {

namespace {

std::string poolText(DB& db, int stringRow) {
    const char* text = db.stringPool->getText(stringRow);
    return text ? text : "";
}

// Rows of tele in order, with their indices; deleted ones left out.
std::vector<const TelemetryRecord*> telemetryRows(DB& db) {
    std::vector<const TelemetryRecord*> rows;
    db.telemetryTable->eachRecord([&](int, const TelemetryRecord& record) {
        if (record.stamp > 0) {
            rows.push_back(&record);
        }
    });
    return rows;
}

struct ThreadRow {
    int trn = 0;
    std::string name, group;
    int64_t nativeId = 0;
    bool live = false;
    bool known = false; // state and CPU time come from a sample of thread states
    // At load the clocks of the threads that were there before the agent cannot be read: they have
    // no native id, and 0 in the place of a time.
    bool hasClock() const { return known && (nativeId != 0 || cpuNs != 0); }
    int state = 0;
    int64_t cpuNs = 0;
    std::string topFrame;
};

// Threads with their states in the last sample that has any.
std::vector<ThreadRow> readThreads(DB& db, bool& hasStates) {
    std::map<int, ThreadStateRecord> states;
    hasStates = false;
    std::vector<const TelemetryRecord*> rows = telemetryRows(db);
    for (auto it = rows.rbegin(); it != rows.rend() && !hasStates; ++it) {
        int count = (**it).values[TELE_THREAD_STATE_COUNT];
        int first = (**it).values[TELE_THREAD_STATE_START_INDEX];
        for (int i = 0; i < count && first >= 0 && first <= INT32_MAX - count; i++) {
            const ThreadStateRecord* record = db.threadStateTable->getRecord(first + i, false);
            if (!record) {
                continue;
            }
            states[record->trn] = *record;
            hasStates = true;
        }
    }
    std::vector<ThreadRow> threads;
    db.threadTable->eachRecord([&](int, const ThreadRecord& record) {
        if (record.stamp <= 0) {
            return;
        }
        ThreadRow row;
        row.trn = record.trn;
        row.name = poolText(db, record.nameStrID);
        row.group = poolText(db, record.groupStrID);
        row.nativeId = record.nativeThreadID;
        auto state = states.find(record.trn);
        if (state != states.end()) {
            row.live = row.known = true;
            row.state = state->second.jvmtiThreadState;
            row.cpuNs = state->second.cpuTimeNs;
            const FrameRecord* frame =
                db.frameTable->getRecord(std::max(state->second.frame, 0), false);
            const MethodRecord* method = frame && frame->method > 0
                                             ? db.methodTable->getRecord(frame->method, false)
                                             : nullptr;
            if (method) {
                row.topFrame = poolText(db, method->classNameStrID) + "." +
                               poolText(db, method->methodNameStrID);
            }
        }
        threads.push_back(row);
    });
    std::stable_sort(threads.begin(), threads.end(),
                     [](const ThreadRow& a, const ThreadRow& b) { return a.cpuNs > b.cpuNs; });
    return threads;
}

// Places of the telemetry values that are 0 because the JVM cannot tell them.
std::set<int> unknownValues(DB& db) {
    std::set<int> places;
    db.propertyTable->eachRecord([&](int, const PropertyRecord& record) {
        if (record.stamp <= 0 || poolText(db, record.nameStrID) != "vdk.telemetry.unknown") {
            return;
        }
        for (const std::string& place : split(poolText(db, record.value), ',')) {
            places.insert(atoi(place.c_str()));
        }
    });
    return places;
}

// The wall clock of the JVM's machine at a record, in milliseconds since 1970; nothing where the
// agent sent none.
std::optional<int64_t> clockOf(DB& db, const TelemetryRecord& record) {
    int first = record.values[TELE_EXT_START_INDEX], count = record.values[TELE_EXT_COUNT];
    for (int i = 0; i < count && first >= 0 && first <= INT32_MAX - count; i++) {
        const TelemetryExtRecord* extra = db.telemetryExtTable->getRecord(first + i, false);
        if (extra && extra->stamp > 0 && poolText(db, extra->nameStrID) == "tele.clock_sec") {
            return int64_t(uint32_t(extra->value)) * 1000;
        }
    }
    return std::nullopt;
}

struct TelemetryLine {
    double uptimeSeconds;
    double cpuPercent; // of one processor, since the line before; negative if unknown
    const TelemetryRecord* record;
    std::optional<int64_t> timeMs = {};
};

std::vector<TelemetryLine> readTelemetry(DB& db, size_t last) {
    std::vector<TelemetryLine> lines;
    const TelemetryRecord* previous = nullptr;
    for (const TelemetryRecord* record : telemetryRows(db)) {
        TelemetryLine line = {record->values[TELE_UPTIME_DS] / 10.0, -1, record};
        if (previous) {
            double passedMs =
                (double(record->values[TELE_UPTIME_DS]) - previous->values[TELE_UPTIME_DS]) * 100;
            double usedMs =
                double(record->values[TELE_CPU_TIME_MS]) - previous->values[TELE_CPU_TIME_MS];
            if (passedMs > 0 && usedMs >= 0) {
                line.cpuPercent = usedMs * 100 / passedMs;
            }
        }
        previous = record;
        lines.push_back(line);
    }
    if (lines.size() > last) {
        lines.erase(lines.begin(), lines.end() - long(last));
    }
    for (TelemetryLine& line : lines) {
        line.timeMs = clockOf(db, *line.record);
    }
    return lines;
}

// "14:03:59", of the day here.
std::string clockTime(int64_t timeMs) {
    time_t seconds = time_t(timeMs / 1000);
    tm parts = {};
    char text[16] = "";
    if (localtime_r(&seconds, &parts)) {
        strftime(text, sizeof(text), "%H:%M:%S", &parts);
    }
    return text;
}

} // namespace

int runThreads(Console& console, const Arguments& arguments) {
    if (arguments.has("--now")) {
        return runThreadsNow(console, arguments);
    }
    for (const char* option : {"--interval", "--each"}) {
        if (arguments.has(option)) {
            throw ClientError(ExitCode::Usage, "usage", std::string(option) + " goes with --now");
        }
    }
    if (arguments.has("--life")) {
        Arguments ofTable = arguments;
        ofTable.values["NAME"] = {"Thread Life Cycle"};
        return runTable(console, ofTable);
    }
    DataSource source = openData(arguments.text("SOURCE"), arguments, ThreadTables);
    bool hasStates = false;
    std::vector<ThreadRow> threads = readThreads(source.database(), hasStates);
    if (!arguments.has("--all") && hasStates) {
        threads.erase(std::remove_if(threads.begin(), threads.end(),
                                     [](const ThreadRow& row) { return !row.live; }),
                      threads.end());
    }
    if (!hasStates) {
        console.note("no thread states: stack telemetry is off or has not run yet");
    }
    if (console.json) {
        JsonDocument json(console, "vdk.threads/1");
        json.field("source", source.name);
        json.field("session", source.session).key("threads").beginArray();
        for (const ThreadRow& row : threads) {
            json.beginObject().field("trn", row.trn).field("name", row.name);
            json.field("group", row.group).key("nativeId");
            row.nativeId != 0 ? json.value(row.nativeId) : json.nullValue();
            json.field("live", row.live).key("state");
            row.known ? json.value(threadStateName(row.state)) : json.nullValue();
            json.key("cpuNs");
            row.hasClock() ? json.value(row.cpuNs) : json.nullValue();
            json.field("topFrame", row.topFrame).endObject();
        }
        json.endArray();
        json.end();
        return 0;
    }
    TextTable table({{"TRN", TextTable::Right},
                     {"STATE"},
                     {"CPU", TextTable::Right},
                     {"NAME"},
                     {"GROUP"},
                     {"AT"}});
    for (const ThreadRow& row : threads) {
        table.add({std::to_string(row.trn), row.known ? threadStateName(row.state) : "-",
                   row.hasClock() ? formatNs(row.cpuNs) : "-", printable(row.name, 60),
                   printable(row.group, 30), printable(row.topFrame, 100)});
    }
    table.print(console);
    return 0;
}

int runTelemetry(Console& console, const Arguments& arguments) {
    DataSource source = openData(arguments.text("SOURCE"), arguments, TelemetryTables);
    std::vector<TelemetryLine> lines =
        readTelemetry(source.database(), size_t(arguments.number("--last", 20)));
    const std::set<int> unknown = unknownValues(source.database());
    if (lines.empty()) {
        console.note("no telemetry yet");
    }
    if (console.json) {
        JsonDocument json(console, "vdk.telemetry/1");
        json.field("source", source.name);
        json.field("session", source.session).key("records").beginArray();
        for (const TelemetryLine& line : lines) {
            const TelemetryValues& values = line.record->values;
            json.beginObject().field("uptimeMs", int64_t(values[TELE_UPTIME_DS]) * 100);
            static const struct {
                const char* name;
                int index;
            } fields[] = {
                {"heapUsedKb", TELE_HEAP_MEMORY_USED_KB},
                {"heapCommittedKb", TELE_HEAP_MEMORY_COMMITTED_KB},
                {"nonHeapUsedKb", TELE_NON_HEAP_MEMORY_USED_KB},
                {"nonHeapCommittedKb", TELE_NON_HEAP_MEMORY_COMMITTED_KB},
                {"loadedClasses", TELE_LOADED_CLASS_COUNT},
                {"liveThreads", TELE_LIVE_THREAD_COUNT},
                {"daemonThreads", TELE_DAEMON_THREAD_COUNT},
                {"gcCount1", TELE_GC_COLLECTION1_COUNT},
                {"gcCount2", TELE_GC_COLLECTION2_COUNT},
                {"gcTimeMs", TELE_GC_TOTAL_COLLECTION_TIME_MS},
                {"cpuTimeMs", TELE_CPU_TIME_MS},
                {"processors", TELE_PROCESSOR_COUNT},
            };
            for (const auto& field : fields) {
                json.key(field.name);
                unknown.count(field.index) ? json.nullValue() : json.value(values[field.index]);
                std::string name = field.name;
                if (endsWith(name, "Kb")) {
                    json.key(name.substr(0, name.size() - 2) + "Bytes");
                    unknown.count(field.index) ? json.nullValue()
                                               : json.value(int64_t(values[field.index]) * 1024);
                }
            }
            json.key("timeMs");
            line.timeMs ? json.value(*line.timeMs) : json.nullValue();
            json.key("cpuPercent");
            line.cpuPercent < 0 ? json.nullValue() : json.value(line.cpuPercent);
            json.endObject();
        }
        json.endArray();
        json.end();
        return 0;
    }
    TextTable table({{"TIME"},
                     {"UPTIME", TextTable::Right},
                     {"HEAP", TextTable::Right},
                     {"COMMITTED", TextTable::Right},
                     {"NON-HEAP", TextTable::Right},
                     {"CLASSES", TextTable::Right},
                     {"THREADS", TextTable::Right},
                     {"GC", TextTable::Right},
                     {"GC TIME", TextTable::Right},
                     {"CPU%", TextTable::Right}});
    for (const TelemetryLine& line : lines) {
        const TelemetryValues& values = line.record->values;
        auto known = [&](int index, const std::string& text) {
            return unknown.count(index) ? "-" : text;
        };
        auto size = [&](int index) {
            return known(index, formatBytes(int64_t(values[index]) * 1024));
        };
        table.add({line.timeMs ? clockTime(*line.timeMs) : "-",
                   formatNs(int64_t(line.uptimeSeconds * 1e9)), size(TELE_HEAP_MEMORY_USED_KB),
                   size(TELE_HEAP_MEMORY_COMMITTED_KB), size(TELE_NON_HEAP_MEMORY_USED_KB),
                   known(TELE_LOADED_CLASS_COUNT, formatCount(values[TELE_LOADED_CLASS_COUNT])),
                   formatCount(values[TELE_LIVE_THREAD_COUNT]),
                   known(TELE_GC_COLLECTION1_COUNT,
                         formatCount(int64_t(values[TELE_GC_COLLECTION1_COUNT]) +
                                     values[TELE_GC_COLLECTION2_COUNT])),
                   known(TELE_GC_TOTAL_COLLECTION_TIME_MS,
                         formatNs(int64_t(values[TELE_GC_TOTAL_COLLECTION_TIME_MS]) * 1000000)),
                   line.cpuPercent < 0 ? "-" : formatPercent(line.cpuPercent)});
    }
    table.print(console);
    return 0;
}

} // namespace vdk
