#include "client/fleet/MetricText.h"

#include "client/console/Text.h"

#include <charconv>
#include <cmath>

namespace vdk {

namespace {

struct TypeRow {
    MetricType type;
    const char* name;
    const char* ending;
};
const TypeRow Types[] = {
    {MetricType::Gauge, "gauge", ""},
    {MetricType::Counter, "counter", "_total"},
    {MetricType::Info, "info", "_info"},
};

const TypeRow& rowOf(MetricType type) {
    return Types[size_t(type)];
}

// Line ends and backslashes stand as escapes in both forms, quotes too within label values.
std::string escaped(const std::string& text, bool withQuotes) {
    std::string result;
    for (const char c : validUtf8(text)) {
        if (c == '\n') {
            result += "\\n";
        } else if (c == '\\' || (c == '"' && withQuotes)) {
            result += std::string("\\") + c;
        } else {
            // A form feed or a null byte ends a line for some readers.
            result += static_cast<unsigned char>(c) < ' ' ? ' ' : c;
        }
    }
    return result;
}

std::string numberText(double value) {
    if (std::isnan(value)) {
        return "NaN";
    }
    if (std::isinf(value)) {
        return value > 0 ? "+Inf" : "-Inf";
    }
    char digits[64];
    const bool isWhole = value == std::floor(value) && std::fabs(value) < 1e15;
    const auto end = isWhole ? std::to_chars(digits, digits + sizeof(digits), (long long)(value))
                             : std::to_chars(digits, digits + sizeof(digits), value);
    return {digits, end.ptr};
}

} // namespace

const char* typeName(MetricType type) {
    return rowOf(type).name;
}

const char* sampleEnding(MetricType type) {
    return rowOf(type).ending;
}

MetricForm metricFormOf(const std::string& accept) {
    const std::string wanted = "application/openmetrics-text";
    for (const std::string& choice : split(accept, ',')) {
        const std::vector<std::string> parts = split(choice, ';');
        const size_t begin = parts[0].find_first_not_of(" \t");
        if (begin == std::string::npos || parts[0].compare(begin, wanted.size(), wanted) != 0) {
            continue;
        }
        bool isRefused = false;
        for (size_t i = 1; i < parts.size(); i++) {
            const size_t weight = parts[i].find("q=");
            isRefused |= weight != std::string::npos &&
                         parts[i].find_first_not_of("0. \t", weight + 2) == std::string::npos;
        }
        if (!isRefused) {
            return MetricForm::OpenMetrics;
        }
    }
    return MetricForm::Prometheus;
}

const char* mediaType(MetricForm form) {
    return form == MetricForm::OpenMetrics
               ? "application/openmetrics-text; version=1.0.0; charset=utf-8"
               : "text/plain; version=0.0.4; charset=utf-8";
}

void MetricText::begin(const MetricFamily& family) {
    // The older form names the family as its samples, knows no units and no type "info".
    const bool isOpen = form == MetricForm::OpenMetrics;
    const std::string name = std::string(family.name) + (isOpen ? "" : sampleEnding(family.type));
    const bool isInfo = family.type == MetricType::Info;
    text += "# HELP " + name + " " + escaped(family.help, isOpen) + "\n";
    text += "# TYPE " + name + " " + (isInfo && !isOpen ? "gauge" : typeName(family.type)) + "\n";
    if (isOpen && *family.unit != 0) {
        text += "# UNIT " + name + " " + family.unit + "\n";
    }
}

void MetricText::addLabels(const MetricLabels& labels, bool& isFirst) {
    for (const auto& [name, value] : labels) {
        text += (isFirst ? "{" : ",") + name + "=\"" + escaped(value, true) + "\"";
        isFirst = false;
    }
}

void MetricText::add(const MetricFamily& family, const MetricLabels& common,
                     const MetricLabels& labels, double value) {
    text += std::string(family.name) + sampleEnding(family.type);
    bool isFirst = true;
    addLabels(common, isFirst);
    addLabels(labels, isFirst);
    text += (isFirst ? " " : "} ") + numberText(value);
    if (timeMs > 0) {
        const bool isOpen = form == MetricForm::OpenMetrics; // seconds
        text += " " + (isOpen ? numberText(double(timeMs) / 1000) : std::to_string(timeMs));
    }
    text += "\n";
}

std::string MetricText::finish() {
    if (form == MetricForm::OpenMetrics) {
        text += "# EOF\n";
    }
    return std::move(text);
}

} // namespace vdk
