#include "client/picture/FirefoxProfile.h"

#include "client/console/Json.h"
#include "client/console/Text.h"
#include "client/picture/FirefoxTracks.h"
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

class ProfileWriter {
public:
    ProfileWriter(std::ostream& out, const Picture& picture, DB& db, size_t mostBytes)
        : json(out, false), picture(picture), db(db), all(picture, db, mostBytes),
          tracks(all.tracks) {}

    void write(int64_t timeMs) {
        json.beginObject();
        writeMeta(timeMs);
        json.key("libs").beginArray().endArray();
        json.key("pages").beginArray().endArray();
        json.key("profilerOverhead").beginArray().endArray();
        writeCounters();
        json.key("threads").beginArray();
        for (const FirefoxTrack& track : tracks) {
            writeThread(track);
        }
        json.endArray().endObject();
    }

private:
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
        for (const auto& [label, text] : {std::pair("Threads", &all.threadsRemark),
                                          std::pair("Small call paths", &all.stacksRemark),
                                          std::pair("Markers", &all.markersRemark)}) {
            if (!text->empty()) {
                writeRemark(label, *text);
            }
        }
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

    void writeThread(const FirefoxTrack& track) {
        FirefoxTables tables(picture, track);
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

    void writeSamples(const FirefoxTrack& track, const FirefoxTables& tables) {
        const std::string unit = track.tree ? track.tree->unit : "count";
        const bool isTime = unit == "ns";
        const size_t length = tables.samples.size();
        json.key("samples").beginObject().field("length", length);
        json.field("weightType", isTime ? "tracing-ms" : unit == "bytes" ? "bytes" : "samples");
        writeColumn(json, "stack", length, [&](size_t i) { json.value(tables.samples[i]); });
        writeColumn(json, "weight", length, [&](size_t i) {
            const int64_t own = track.nodes[i].second;
            isTime ? json.value(millis(own)) : json.value(own);
        });
        int64_t sum = 0;
        writeColumn(json, "time", length, [&](size_t i) {
            // A microsecond is as much as anybody sees.
            isTime ? json.value(std::round(double(sum) / 1000) / 1000) : json.value(i);
            sum += track.nodes[i].second;
        });
        json.endObject();
    }

    void writeMarkers(const FirefoxTrack& track, FirefoxTables& tables) {
        enum Phase { Instant, Interval, IntervalStart };
        const std::vector<FirefoxMarker>& markers = track.markers;
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

    void writeStacks(const FirefoxTables& tables) {
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
    const FirefoxTracks all;
    const std::vector<FirefoxTrack>& tracks;
};

const std::vector<std::pair<const char*, std::vector<const char*>>> ProfileWriter::EmptyTables = {
    {"resourceTable", {"lib", "name", "host", "type"}},
    {"nativeSymbols", {"libIndex", "address", "name", "functionSize"}},
};

} // namespace

void writeFirefoxProfile(std::ostream& out, const Picture& picture, DB& db, int64_t timeMs,
                         size_t mostBytes) {
    ProfileWriter(out, picture, db, mostBytes).write(timeMs);
    out << '\n';
}

} // namespace vdk
