#include "client/fleet/JvmMetrics.h"

#include "client/agent/Protocol.h"
#include "client/console/Text.h"
#include "client/events/SqlReport.h"
#include "client/fleet/AgentThreads.h"
#include "client/profile/ExceptionReport.h"
#include "client/profile/MonitorReport.h"
#include "db/Records.h"

#include <algorithm>

namespace vdk {

// What the rows of the table read from.
struct JvmView {
    const Jvm& jvm;
    const AgentInfo& info;
    int64_t status;
    const TelemetryRecord* telemetry; // the last one; null before the first
    const std::set<int>& unknown;     // telemetry values that the JVM does not tell
    const Profile& profile;
    const MonitorUses& monitors;
    const std::vector<ThrownRow>& exceptions;
    const ProbeTables& tables;
    const std::map<std::pair<std::string, std::string>, SqlStatement>& sql; // by database, text
    const std::map<std::string, double>& agentThreads;                      // CPU seconds by name
};

namespace {

constexpr double NsPerSecond = 1e9;
constexpr size_t LongestLabel = 300; // characters

std::string label(const std::string& text) {
    return printable(text, LongestLabel);
}

// A value of the last telemetry row, `unit` times what is told.
void addTelemetry(const JvmView& view, MetricSamples& samples, TelemetryIndex index, double factor,
                  const MetricLabels& labels = {}) {
    if (view.telemetry && view.unknown.count(index) == 0 && view.telemetry->values[index] >= 0) {
        samples[labels] += view.telemetry->values[index] * factor;
    }
}

const std::vector<std::pair<WaitKind, const char*>> WaitKinds = {
    {WaitKind::Blocked, "blocked"},
    {WaitKind::InWait, "wait"},
    {WaitKind::ForOthers, "parked"},
    {WaitKind::ForWork, "idle"},
};

const char* nameOf(WaitKind kind) {
    for (const auto& [known, name] : WaitKinds) {
        if (known == kind) {
            return name;
        }
    }
    return "";
}

// A name without the number at its end, whether there are others of its kind or not: a series keeps
// its name when the second thread of a pool comes.
std::string poolOf(const std::string& name) {
    const size_t last = name.find_last_not_of("0123456789");
    return last == std::string::npos || last + 1 == name.size() ? name
                                                                : name.substr(0, last + 1) + "*";
}

// Own times by thread group and pool.
void addTimes(const JvmView& view, MetricSamples& samples, const Measure& measure) {
    if (view.profile.measure != &measure) {
        return;
    }
    std::vector<MetricLabels> labels;
    for (const ProfileThread& thread : view.profile.threads) {
        labels.push_back(
            {{"thread_group", label(thread.group)}, {"threads", label(poolOf(thread.name))}});
    }
    for (const Charge& charge : view.profile.charges) {
        samples[labels[size_t(charge.thread)]] += double(charge.own) / NsPerSecond;
    }
}

template <typename Value>
void addWaits(const JvmView& view, MetricSamples& samples, Value&& valueOf) {
    for (const MonitorUse& use : view.monitors.uses) {
        samples[{{"kind", nameOf(use.kind)}, {"class", label(use.className)}}] += valueOf(use);
    }
}

template <typename Value>
void addSql(const JvmView& view, MetricSamples& samples, Value&& valueOf) {
    for (const auto& [key, statement] : view.sql) {
        samples[{{"database", label(key.first)}, {"statement", label(key.second)}}] +=
            valueOf(statement);
    }
}

using View = const JvmView&;
using Samples = MetricSamples&;

} // namespace

const std::vector<JvmMetric>& jvmMetrics() {
    static const std::vector<JvmMetric> rows = {
        {{"vdk_jvm", MetricType::Info, "", "What runs, and which agent is in it."},
         [](View view, Samples samples) {
             samples[{{"main", label(view.jvm.mainName)},
                      {"java_version", label(view.jvm.javaVersion)},
                      {"user", label(view.jvm.user)},
                      {"agent", label(view.info.product)}}] = 1;
         },
         true},
        {{"vdk_jvm_uptime_seconds", MetricType::Gauge, "seconds", "Time since the JVM's start."},
         [](View view, Samples samples) { addTelemetry(view, samples, TELE_UPTIME_DS, 0.1); }},
        {{"vdk_jvm_cpu_seconds", MetricType::Counter, "seconds", "CPU time of the process."},
         [](View view, Samples samples) { addTelemetry(view, samples, TELE_CPU_TIME_MS, 0.001); }},
        {{"vdk_jvm_processors", MetricType::Gauge, "", "Processors that the JVM may use."},
         [](View view, Samples samples) { addTelemetry(view, samples, TELE_PROCESSOR_COUNT, 1); }},
        {{"vdk_jvm_memory_used_bytes", MetricType::Gauge, "bytes", "Memory in use, by area."},
         [](View view, Samples samples) {
             addTelemetry(view, samples, TELE_HEAP_MEMORY_USED_KB, 1024, {{"area", "heap"}});
             addTelemetry(view, samples, TELE_NON_HEAP_MEMORY_USED_KB, 1024, {{"area", "nonheap"}});
         }},
        {{"vdk_jvm_memory_committed_bytes", MetricType::Gauge, "bytes",
          "Memory that the system has given, by area."},
         [](View view, Samples samples) {
             addTelemetry(view, samples, TELE_HEAP_MEMORY_COMMITTED_KB, 1024, {{"area", "heap"}});
             addTelemetry(view, samples, TELE_NON_HEAP_MEMORY_COMMITTED_KB, 1024,
                          {{"area", "nonheap"}});
         }},
        {{"vdk_jvm_gc_collections", MetricType::Counter, "",
          "Garbage collections, by the number of the collector in the JVM's list."},
         [](View view, Samples samples) {
             addTelemetry(view, samples, TELE_GC_COLLECTION1_COUNT, 1, {{"collector", "1"}});
             addTelemetry(view, samples, TELE_GC_COLLECTION2_COUNT, 1, {{"collector", "2"}});
         }},
        {{"vdk_jvm_gc_seconds", MetricType::Counter, "seconds", "Time of garbage collections."},
         [](View view, Samples samples) {
             addTelemetry(view, samples, TELE_GC_TOTAL_COLLECTION_TIME_MS, 0.001);
         }},
        {{"vdk_jvm_loaded_classes", MetricType::Gauge, "", "Classes that are loaded."},
         [](View view, Samples samples) {
             addTelemetry(view, samples, TELE_LOADED_CLASS_COUNT, 1);
         }},
        {{"vdk_jvm_threads", MetricType::Gauge, "", "Live threads, daemon threads among them."},
         [](View view, Samples samples) {
             addTelemetry(view, samples, TELE_LIVE_THREAD_COUNT, 1);
         }},
        {{"vdk_jvm_daemon_threads", MetricType::Gauge, "", "Live daemon threads."},
         [](View view, Samples samples) {
             addTelemetry(view, samples, TELE_DAEMON_THREAD_COUNT, 1);
         }},
        {{"vdk_recording", MetricType::Gauge, "", "1 for what the agent records now."},
         [](View view, Samples samples) {
             for (const protocol::StatusBit& bit : protocol::StatusBits) {
                 samples[{{"kind", bit.name}}] = (view.status & bit.bit) != 0 ? 1 : 0;
             }
         },
         true},
        {{"vdk_cpu_seconds", MetricType::Counter, "seconds",
          "Recorded CPU time, by thread group and by threads whose names differ in a number."},
         [](View view, Samples samples) { addTimes(view, samples, CpuTime); }},
        {{"vdk_elapsed_seconds", MetricType::Counter, "seconds",
          "Recorded elapsed time, by thread group and by threads whose names differ in a number."},
         [](View view, Samples samples) { addTimes(view, samples, ElapsedTime); }},
        {{"vdk_lock_waits", MetricType::Counter, "",
          "Waits for monitors and locks, by kind and class."},
         [](View view, Samples samples) {
             addWaits(view, samples, [](const MonitorUse& use) { return double(use.count); });
         }},
        {{"vdk_lock_wait_seconds", MetricType::Counter, "seconds",
          "Time of waits for monitors and locks, by kind and class."},
         [](View view, Samples samples) {
             addWaits(view, samples,
                      [](const MonitorUse& use) { return double(use.timeNs) / NsPerSecond; });
         }},
        {{"vdk_exceptions", MetricType::Counter, "", "Recorded exceptions, by class."},
         [](View view, Samples samples) {
             for (const ThrownRow& row : view.exceptions) {
                 samples[{{"class", label(row.className)}}] += double(row.count);
             }
         }},
        {{"vdk_sql_executions", MetricType::Counter, "",
          "Executions of statements that differ in literals only."},
         [](View view, Samples samples) {
             addSql(view, samples, [](const SqlStatement& sql) { return double(sql.count); });
         }},
        {{"vdk_sql_seconds", MetricType::Counter, "seconds",
          "Time of executions of statements that differ in literals only."},
         [](View view, Samples samples) {
             addSql(view, samples,
                    [](const SqlStatement& sql) { return double(sql.totalNs) / NsPerSecond; });
         }},
        {{"vdk_probe_rows", MetricType::Gauge, "", "Rows in the tables of probes."},
         [](View view, Samples samples) {
             for (const ProbeTable& table : view.tables.all()) {
                 samples[{{"table", label(table.name)}}] += double(table.rows.size());
             }
         }},
        {{"vdk_probe_rows_refused", MetricType::Counter, "",
          "Rows of probes that found their table full."},
         [](View view, Samples samples) {
             for (const ProbeTable& table : view.tables.all()) {
                 samples[{{"table", label(table.name)}}] += double(table.refused);
             }
         }},
        {{"vdk_sampled_cpu_seconds", MetricType::Counter, "seconds",
          "CPU time of threads while they were sampled; charged is what stacks got of it."},
         [](View view, Samples samples) {
             const SampledCpu sampled = view.profile.sampledCpu();
             if (sampled.isKnown()) {
                 samples[{{"part", "used"}}] = double(sampled.usedNs) / NsPerSecond;
                 samples[{{"part", "charged"}}] = double(sampled.chargedNs) / NsPerSecond;
             }
         }},
        {{"vdk_lost_samples", MetricType::Counter, "", "Samples that found no place."},
         [](View view, Samples samples) {
             if (view.profile.sampler == "signal") {
                 samples[{}] = view.profile.lostSamples;
             }
         }},
        {{"vdk_not_walkable_seconds", MetricType::Counter, "seconds",
          "CPU time of samples whose stack could not be walked."},
         [](View view, Samples samples) {
             if (view.profile.sampler == "signal") {
                 samples[{}] = double(view.profile.notWalkableNs) / NsPerSecond;
             }
         }},
        {{"vdk_threads_without_timer", MetricType::Gauge, "",
          "Threads that the system has given no timer to sample them by."},
         [](View view, Samples samples) {
             if (view.profile.sampler == "signal") {
                 samples[{}] = view.profile.threadsWithoutTimer;
             }
         }},
        {{"vdk_agent_cpu_seconds", MetricType::Counter, "seconds",
          "CPU time of the agent's own threads, by the system's name of the thread."},
         [](View view, Samples samples) {
             for (const auto& [name, seconds] : view.agentThreads) {
                 samples[{{"thread", label(name)}}] = seconds;
             }
         }},
    };
    return rows;
}

void SeriesLimit::apply(size_t family, MetricSamples& samples) {
    known.resize(std::max(known.size(), family + 1));
    std::set<MetricLabels>& names = known[family];
    MetricSamples kept;
    for (const auto& [labels, value] : samples) {
        const bool isKnown = names.count(labels) != 0;
        if (isKnown || names.size() < Most) {
            names.insert(labels);
            kept[labels] += value;
            continue;
        }
        MetricLabels others = labels;
        for (auto& [name, text] : others) {
            text = "(others)";
        }
        kept[others] += value;
    }
    samples = std::move(kept);
}

namespace {

const TelemetryRecord* lastTelemetry(DB& db) {
    const TelemetryRecord* last = nullptr;
    db.telemetryTable->eachRecord(
        [&](int, const TelemetryRecord& record) { last = record.stamp > 0 ? &record : last; });
    return last;
}

std::map<std::pair<std::string, std::string>, SqlStatement> sqlOf(const ProbeTables& tables) {
    std::map<std::string, std::vector<SqlCall>> calls;
    for (SqlCall& call : readSqlCalls(tables)) {
        calls[call.database].push_back(std::move(call));
    }
    std::map<std::pair<std::string, std::string>, SqlStatement> statements;
    for (const auto& [database, ofDatabase] : calls) {
        for (auto& [shape, statement] : sqlStatements(ofDatabase)) {
            statements[{database, shape}] = statement;
        }
    }
    return statements;
}

} // namespace

std::set<int> unknownTelemetry(DB& db) {
    std::set<int> places;
    db.propertyTable->eachRecord([&](int, const PropertyRecord& record) {
        const char* name = db.stringPool->getText(record.nameStrID);
        const char* value = db.stringPool->getText(record.value);
        if (record.stamp > 0 && name && value && name == std::string("vdk.telemetry.unknown")) {
            for (const std::string& place : split(value, ',')) {
                places.insert(int(parseNumber(place, 0, TELE_FIELD_COUNT).value_or(-1)));
            }
        }
    });
    return places;
}

JvmReading readMetrics(DataSource& source, const Jvm& jvm, const AgentInfo& info,
                       SeriesLimit& limit) {
    DB& db = source.database();
    const Profile profile = makeProfile(db);
    const MonitorUses monitors = readMonitors(db, profile);
    const std::vector<ThrownRow> exceptions = readExceptions(db, profile);
    const ProbeTables tables(db);
    const std::set<int> unknown = unknownTelemetry(db);
    const auto sql = sqlOf(tables);
    const std::map<std::string, double> agentThreads = agentThreadSeconds(jvm.pid);
    const JvmView view = {jvm,     info,    source.status, lastTelemetry(db),
                          unknown, profile, monitors,      exceptions,
                          tables,  sql,     agentThreads};
    JvmReading reading;
    for (const JvmMetric& metric : jvmMetrics()) {
        MetricSamples samples;
        metric.read(view, samples);
        limit.apply(reading.samples.size(), samples);
        reading.samples.push_back(std::move(samples));
    }
    return reading;
}

std::string metricsOfTables(DataSource& source) {
    SeriesLimit limit;
    const JvmReading reading = readMetrics(source, Jvm(), AgentInfo(), limit);
    MetricText text(MetricForm::OpenMetrics, source.captureTimeMs);
    const MetricLabels session = {{"session", printable(source.session, 100)}};
    for (size_t i = 0; i < reading.samples.size(); i++) {
        const JvmMetric& metric = jvmMetrics()[i];
        if (!metric.isOfProcess) {
            text.begin(metric.family);
            for (const auto& [labels, value] : reading.samples[i]) {
                text.add(metric.family, session, labels, value);
            }
        }
    }
    return text.finish();
}

} // namespace vdk
