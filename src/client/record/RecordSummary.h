// What `vdk record` says at its end: how long and what, the CPU time and how much of it was seen,
// the hottest of each, and what to type next.
#pragma once

#include "client/commands/DataFile.h"
#include "client/picture/Picture.h"

#include <string>
#include <vector>

namespace vdk {

struct RecordSummary {
    int pid = 0;
    std::string session, file;
    Form form = Form::Html;
    int64_t bytes = 0;
    double seconds = 0;     // -1 where it is not known
    double lostSeconds = 0; // at the end of a JVM that was killed
    bool ended = false;     // the JVM did, before the time was over
    bool isOfCpu = true;    // not of elapsed time
    SampledCpu cpu;
    std::string sampler;
    int64_t notWalkableNs = 0;

    struct Hottest {
        std::string id, title, unit, method;
        int64_t own = 0, all = 0;
    };
    std::vector<Hottest> hottest; // of each thing that was recorded
};

// Takes the numbers from the data.
void summarize(RecordSummary& summary, DataSource& source);
void printSummary(std::ostream& out, const RecordSummary& summary);
void writeSummary(JsonWriter& json, const RecordSummary& summary);
// One line, for the page.
std::string notesOf(const RecordSummary& summary);

} // namespace vdk
