// What is told of a JVM to those who watch many: one table of metrics, each with the function that
// reads its values. Help, document and text follow from the table.
#pragma once

#include "client/commands/Sources.h"
#include "client/fleet/MetricText.h"

#include <set>
#include <string>
#include <vector>

namespace vdk {

struct JvmView;

struct JvmMetric {
    MetricFamily family;
    void (*read)(const JvmView& jvm, MetricSamples& samples);
    bool isOfProcess = false; // nothing that tables tell
};
const std::vector<JvmMetric>& jvmMetrics();

// Of what is read of a JVM. The user tables of probes come as well.
constexpr int MetricTables = CpuTables | MonitorTables | ExceptionTables | TelemetryTables;

// Keeps the number of series of a JVM within bounds: label sets that are new once a family has so
// many are added up in one, so that no counter ever falls.
class SeriesLimit {
public:
    static constexpr size_t Most = 200;

    void apply(size_t family, MetricSamples& samples);

private:
    std::vector<std::set<MetricLabels>> known;
};

// One reading, by the rows of jvmMetrics().
struct JvmReading {
    std::vector<MetricSamples> samples;
};
JvmReading readMetrics(DataSource& source, const Jvm& jvm, const AgentInfo& info,
                       SeriesLimit& limit);

// Places of the telemetry values that the JVM does not tell.
std::set<int> unknownTelemetry(DB& db);

// The families of the tables alone, as OpenMetrics: of a file at the time of its capture.
std::string metricsOfTables(DataSource& source);

} // namespace vdk
