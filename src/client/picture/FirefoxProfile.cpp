#include "client/picture/FirefoxProfile.h"

#include "client/console/Json.h"
#include "client/console/Text.h"
#include "client/events/ProbeTables.h"
#include "core/ground/Version.h"
#include "db/DB.h"

#include <algorithm>
#include <cmath>

namespace vdk {

namespace {

// See docs-developer/CHANGELOG-formats.md of the Firefox Profiler; later versions read this one.
constexpr int ProcessedVersion = 48;
constexpr int GeckoVersion = 27;
constexpr double NsPerMs = 1e6;
constexpr size_t LongestMarkerText = 300;
constexpr char EventsProcess[] = "events";

struct Marker {
    std::string name, text;
    int64_t startNs = 0, endNs = 0;
    bool isOpen = false;
    bool hasDuration = false;
};

// A thread of the profile.
struct Track {
    std::string process, processName, name;
    int trn = 0;
    const StackTree* tree = nullptr; // null of one that has markers alone
    std::vector<const StackTree::Entry*> entries;
    std::vector<Marker> markers;
};

double millis(int64_t ns) {
    return double(ns) / NsPerMs;
}

template <typename Value>
void writeColumn(JsonWriter& json, const char* name, size_t length, Value valueOf) {
    json.key(name).beginArray();
    for (size_t i = 0; i < length; i++) {
        valueOf(i);
    }
    json.endArray();
}

// The stacks of one thread, with tables of its own: a node's parent stands before it.
class ThreadTables {
public:
    ThreadTables(const Picture& picture, const Track& track) : picture(picture) {
        if (track.tree) {
            for (const StackTree::Entry* entry : track.entries) {
                samples.push_back(stackOf(*track.tree, entry->node));
            }
        }
    }

    int text(const std::string& content) {
        auto [entry, added] = stringIndex.try_emplace(content, int(strings.size()));
        if (added) {
            strings.push_back(content);
        }
        return entry->second;
    }

    std::vector<int> samples;  // stacks
    std::vector<int> prefixes; // by stack, -1 of an outermost one
    std::vector<int> frames;   // by stack
    std::vector<int> funcs;    // name by function; each has one frame
    std::vector<std::string> strings;

private:
    int stackOf(const StackTree& tree, int node) {
        path.clear();
        auto known = stacks.end();
        for (; node > 0 && (known = stacks.find(node)) == stacks.end();
             node = tree.nodes[size_t(node)].parent) {
            path.push_back(node);
        }
        int stack = node > 0 ? known->second : -1;
        for (auto it = path.rbegin(); it != path.rend(); ++it) {
            prefixes.push_back(stack);
            frames.push_back(funcOf(tree.nodes[size_t(*it)].name));
            stack = int(prefixes.size()) - 1;
            stacks[*it] = stack;
        }
        return stack;
    }

    int funcOf(int name) {
        auto [entry, added] = funcIndex.try_emplace(name, int(funcs.size()));
        if (added) {
            funcs.push_back(text(picture.names[size_t(name)].full()));
        }
        return entry->second;
    }

    const Picture& picture;
    std::unordered_map<int, int> stacks, funcIndex; // by node, by name
    std::unordered_map<std::string, int> stringIndex;
    std::vector<int> path;
};

class ProfileWriter {
public:
    ProfileWriter(std::ostream& out, const Picture& picture, DB& db)
        : json(out, false), picture(picture), db(db) {
        addTracks();
        addMarkers();
    }

    void write(int64_t timeMs) {
        json.beginObject();
        writeMeta(timeMs);
        json.key("libs").beginArray().endArray();
        json.key("pages").beginArray().endArray();
        json.key("profilerOverhead").beginArray().endArray();
        writeCounters();
        json.key("threads").beginArray();
        for (const Track& track : tracks) {
            writeThread(track);
        }
        json.endArray().endObject();
    }

private:
    void addTracks() {
        for (const StackTree& tree : picture.trees) {
            std::vector<std::vector<const StackTree::Entry*>> byThread(picture.threads.size());
            for (const StackTree::Entry& entry : tree.entries) {
                if (entry.now.own > 0) {
                    byThread[size_t(entry.thread)].push_back(&entry);
                }
            }
            for (size_t i = 0; i < byThread.size(); i++) {
                if (!byThread[i].empty()) {
                    const Picture::Thread& thread = picture.threads[i];
                    trackOfTrn.try_emplace(thread.trn, tracks.size());
                    tracks.push_back({tree.id,
                                      tree.title,
                                      thread.name,
                                      thread.trn,
                                      &tree,
                                      std::move(byThread[i]),
                                      {}});
                }
            }
        }
    }

    void addMarkers() {
        const ProbeTables tables(db);
        for (const ProbeTable& table : tables.all()) {
            if (table.predefined[USER_TABLE_PREDEFINED_COLUMN_UPTIME_NS] < 0) {
                continue;
            }
            for (const ProbeRow& row : table.rows) {
                Marker marker;
                marker.name = printable(table.name, LongestMarkerText);
                marker.text = textOf(tables, table, row);
                marker.startNs = table.startNs(row);
                marker.isOpen = table.isOpen(row);
                marker.hasDuration = table.hasDuration();
                marker.endNs = std::max(table.endNs(row), marker.startNs);
                trackFor(tables, table, row).markers.push_back(std::move(marker));
            }
        }
    }

    // What the probe itself has recorded.
    static std::string textOf(const ProbeTables& tables, const ProbeTable& table,
                              const ProbeRow& row) {
        std::string text;
        for (size_t i = 0; i < table.columns.size() && text.size() < LongestMarkerText; i++) {
            if (!table.columns[i].isFilled) {
                text += (text.empty() ? "" : ", ") + table.columns[i].name + ": " +
                        tables.text(table, row, int(i));
            }
        }
        return printable(text, LongestMarkerText);
    }

    Track& trackFor(const ProbeTables& tables, const ProbeTable& table, const ProbeRow& row) {
        const int trn = table.thread(row);
        auto [entry, added] = trackOfTrn.try_emplace(trn, tracks.size());
        if (added) {
            tracks.push_back({EventsProcess,
                              "Events",
                              printable(tables.threadName(table, row)),
                              trn,
                              nullptr,
                              {},
                              {}});
        }
        return tracks[entry->second];
    }

    void writeMeta(int64_t timeMs) {
        json.key("meta").beginObject();
        json.field("version", GeckoVersion).field("preprocessedProfileVersion", ProcessedVersion);
        json.field("interval", 1).field("startTime", int64_t(db.startTime) * 1000);
        json.field("processType", 0).field("stackwalk", 1).field("debug", false);
        json.field("product", "Java: " + picture.session);
        json.field("importedFrom", "vdk " VDK_VERSION);
        json.field("symbolicated", true).field("symbolicationNotSupported", true);
        json.field("usesOnlyOneStackType", true).field("doesNotUseFrameImplementation", true);
        json.field("sourceCodeIsNotOnSearchfox", true).field("keepProfileThreadOrder", true);
        json.key("sampleUnits").beginObject().field("time", "ms").field("eventDelay", "ms");
        json.field("threadCPUDelta", "ns").endObject();
        json.key("extensions").beginObject().field("length", 0);
        for (const char* column : {"baseURL", "id", "name"}) {
            json.key(column).beginArray().endArray();
        }
        json.endObject().key("categories").beginArray().beginObject();
        json.field("name", "Other").field("color", "grey");
        json.key("subcategories").beginArray().value("Other").endArray().endObject().endArray();
        writeMarkerSchema();
        json.key("extra").beginArray().beginObject().field("label", "About").key("entries");
        json.beginArray();
        writeRemark("Samples", "sums by call path: their order is not time");
        writeRemark("Processes", "what was recorded, each with the threads it was recorded of");
        if (timeMs > 0) {
            writeRemark("Captured, ms since 1970", std::to_string(timeMs));
        }
        json.endArray().endObject().endArray().endObject();
    }

    void writeRemark(const char* label, const std::string& text) {
        json.beginObject().field("label", label).field("format", "string");
        json.field("value", text).endObject();
    }

    void writeMarkerSchema() {
        json.key("markerSchema").beginArray().beginObject().field("name", "Row");
        json.key("display").beginArray().value("marker-chart").value("marker-table").endArray();
        json.field("chartLabel", "{marker.data.text}").field("tableLabel", "{marker.data.text}");
        json.key("data").beginArray().beginObject().field("key", "text").field("label", "Row");
        json.field("format", "string").field("searchable", true).endObject().endArray();
        json.endObject().endArray();
    }

    // Values are told as what they rose by.
    void writeCounter(const std::vector<const TelemetryRecord*>& rows, const char* name,
                      const char* category, const char* description, TelemetryIndex index,
                      int64_t factor) {
        json.beginObject().field("name", name).field("category", category);
        json.field("description", description).field("mainThreadIndex", 0);
        json.field("pid", tracks.front().process);
        json.key("samples").beginObject().field("length", rows.size());
        writeColumn(json, "time", rows.size(),
                    [&](size_t i) { json.value(int64_t(rows[i]->values[TELE_UPTIME_DS]) * 100); });
        int64_t before = 0;
        writeColumn(json, "count", rows.size(), [&](size_t i) {
            const int64_t now = std::max(0, rows[i]->values[index]) * factor;
            json.value(now - before);
            before = now;
        });
        json.endObject().endObject();
    }

    void writeCounters() {
        std::vector<const TelemetryRecord*> rows;
        db.telemetryTable->eachRecord([&](int, const TelemetryRecord& row) {
            if (row.stamp > 0) {
                rows.push_back(&row);
            }
        });
        json.key("counters").beginArray();
        if (!rows.empty() && !tracks.empty()) {
            writeCounter(rows, "heap", "Memory", "Heap in use", TELE_HEAP_MEMORY_USED_KB, 1024);
            writeCounter(rows, "non-heap", "Memory", "Memory in use beside the heap",
                         TELE_NON_HEAP_MEMORY_USED_KB, 1024);
            writeCounter(rows, "processCPU", "CPU", "CPU time of the process", TELE_CPU_TIME_MS, 1);
            writeCounter(rows, "threads", "Other", "Live threads", TELE_LIVE_THREAD_COUNT, 1);
            writeCounter(rows, "classes", "Other", "Loaded classes", TELE_LOADED_CLASS_COUNT, 1);
            writeCounter(rows, "gc", "Other", "Time of garbage collections, ms",
                         TELE_GC_TOTAL_COLLECTION_TIME_MS, 1);
        }
        json.endArray();
    }

    void writeThread(const Track& track) {
        ThreadTables tables(picture, track);
        json.beginObject().field("name", track.name).field("isMainThread", false);
        json.field("processType", "default").field("processName", track.processName);
        json.field("pid", track.process).field("tid", track.trn);
        json.field("processStartupTime", 0).key("processShutdownTime").nullValue();
        json.field("registerTime", 0).key("unregisterTime").nullValue();
        json.field("showMarkersInTimeline", true).key("pausedRanges").beginArray().endArray();
        writeSamples(track, tables);
        writeMarkers(track, tables);
        writeStacks(tables);
        for (const auto& [name, columns] : EmptyTables) {
            json.key(name).beginObject().field("length", 0);
            for (const char* column : columns) {
                json.key(column).beginArray().endArray();
            }
            json.endObject();
        }
        json.key("stringArray").beginArray();
        for (const std::string& text : tables.strings) {
            json.value(text);
        }
        json.endArray().endObject();
    }

    void writeSamples(const Track& track, const ThreadTables& tables) {
        const std::string unit = track.tree ? track.tree->unit : "count";
        const bool isTime = unit == "ns";
        const size_t length = tables.samples.size();
        json.key("samples").beginObject().field("length", length);
        json.field("weightType", isTime ? "tracing-ms" : unit == "bytes" ? "bytes" : "samples");
        writeColumn(json, "stack", length, [&](size_t i) { json.value(tables.samples[i]); });
        writeColumn(json, "weight", length, [&](size_t i) {
            const int64_t own = track.entries[i]->now.own;
            isTime ? json.value(millis(own)) : json.value(own);
        });
        int64_t sum = 0;
        writeColumn(json, "time", length, [&](size_t i) {
            // A microsecond is as much as anybody sees.
            isTime ? json.value(std::round(double(sum) / 1000) / 1000) : json.value(i);
            sum += track.entries[i]->now.own;
        });
        json.endObject();
    }

    void writeMarkers(const Track& track, ThreadTables& tables) {
        enum Phase { Instant, Interval, IntervalStart };
        const std::vector<Marker>& markers = track.markers;
        json.key("markers").beginObject().field("length", markers.size());
        writeColumn(json, "name", markers.size(),
                    [&](size_t i) { json.value(tables.text(markers[i].name)); });
        writeColumn(json, "startTime", markers.size(),
                    [&](size_t i) { json.value(millis(markers[i].startNs)); });
        writeColumn(json, "endTime", markers.size(), [&](size_t i) {
            const bool hasEnd = markers[i].hasDuration && !markers[i].isOpen;
            hasEnd ? json.value(millis(markers[i].endNs)) : json.nullValue();
        });
        writeColumn(json, "phase", markers.size(), [&](size_t i) {
            json.value(!markers[i].hasDuration ? Instant
                       : markers[i].isOpen     ? IntervalStart
                                               : Interval);
        });
        writeColumn(json, "category", markers.size(), [&](size_t) { json.value(0); });
        writeColumn(json, "data", markers.size(), [&](size_t i) {
            json.beginObject().field("type", "Row").field("text", markers[i].text).endObject();
        });
        json.endObject();
    }

    void writeSame(const char* name, size_t length, int value) {
        writeColumn(json, name, length, [&](size_t) { json.value(value); });
    }
    void writeNulls(const char* name, size_t length) {
        writeColumn(json, name, length, [&](size_t) { json.nullValue(); });
    }

    void writeStacks(const ThreadTables& tables) {
        const size_t stacks = tables.prefixes.size(), funcs = tables.funcs.size();
        json.key("stackTable").beginObject().field("length", stacks);
        writeColumn(json, "prefix", stacks, [&](size_t i) {
            tables.prefixes[i] < 0 ? json.nullValue() : json.value(tables.prefixes[i]);
        });
        writeColumn(json, "frame", stacks, [&](size_t i) { json.value(tables.frames[i]); });
        writeSame("category", stacks, 0);
        writeSame("subcategory", stacks, 0);
        json.endObject().key("frameTable").beginObject().field("length", funcs);
        writeColumn(json, "func", funcs, [&](size_t i) { json.value(i); });
        writeSame("address", funcs, -1);
        writeSame("inlineDepth", funcs, 0);
        for (const char* column : {"category", "subcategory", "nativeSymbol", "innerWindowID",
                                   "implementation", "line", "column"}) {
            writeNulls(column, funcs);
        }
        json.endObject().key("funcTable").beginObject().field("length", funcs);
        writeColumn(json, "name", funcs, [&](size_t i) { json.value(tables.funcs[i]); });
        for (const char* column : {"isJS", "relevantForJS"}) {
            writeColumn(json, column, funcs, [&](size_t) { json.value(false); });
        }
        writeSame("resource", funcs, -1);
        for (const char* column : {"fileName", "lineNumber", "columnNumber"}) {
            writeNulls(column, funcs);
        }
        json.endObject();
    }

    static const std::vector<std::pair<const char*, std::vector<const char*>>> EmptyTables;

    JsonWriter json;
    const Picture& picture;
    DB& db;
    std::vector<Track> tracks;
    std::unordered_map<int, size_t> trackOfTrn; // the first of each thread
};

const std::vector<std::pair<const char*, std::vector<const char*>>> ProfileWriter::EmptyTables = {
    {"resourceTable", {"lib", "name", "host", "type"}},
    {"nativeSymbols", {"libIndex", "address", "name", "functionSize"}},
};

} // namespace

void writeFirefoxProfile(std::ostream& out, const Picture& picture, DB& db, int64_t timeMs) {
    ProfileWriter(out, picture, db).write(timeMs);
    out << '\n';
}

} // namespace vdk
