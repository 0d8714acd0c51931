// Metrics as text: the OpenMetrics form, and the older one of Prometheus that everything reads.
#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <utility>
#include <vector>

namespace vdk {

enum class MetricType { Gauge, Counter, Info };

// A name without its ending ("_total", "_info"); with a unit it ends in that.
struct MetricFamily {
    const char* name;
    MetricType type;
    const char* unit; // "seconds", "bytes"; empty without one
    const char* help;
};

using MetricLabels = std::vector<std::pair<std::string, std::string>>;
// Values by their labels: what comes twice under one set is added up.
using MetricSamples = std::map<MetricLabels, double>;

enum class MetricForm { OpenMetrics, Prometheus };

// What the media types in an Accept header ask for; the older form where they do not tell.
MetricForm metricFormOf(const std::string& accept);
const char* mediaType(MetricForm form);

const char* typeName(MetricType type);
// The ending of its samples' names.
const char* sampleEnding(MetricType type);

class MetricText {
public:
    // With a time of day each sample bears it: what a file tells is not of the moment it is read.
    explicit MetricText(MetricForm form, int64_t timeMs = 0) : form(form), timeMs(timeMs) {}

    // The head of a family; its samples follow, and it comes no second time.
    void begin(const MetricFamily& family);
    // `common` stands ahead of the sample's own labels.
    void add(const MetricFamily& family, const MetricLabels& common, const MetricLabels& labels,
             double value);
    // The whole text, with its end mark.
    std::string finish();

private:
    void addLabels(const MetricLabels& labels, bool& isFirst);

    const MetricForm form;
    const int64_t timeMs;
    std::string text;
};

} // namespace vdk
