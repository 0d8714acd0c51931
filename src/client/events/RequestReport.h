// Requests that servlets answered, by URI, with the statements that were executed inside.
#pragma once

#include "client/console/Console.h"
#include "client/events/ProbeTables.h"

namespace vdk {

struct RequestSums {
    int64_t count = 0, open = 0, totalNs = 0, maxNs = 0;
    int64_t cpuNs = 0, cpuKnown = 0; // of those that tell
    int64_t sqlCalls = 0, sqlNs = 0;

    int64_t meanNs() const { return count > open ? totalNs / (count - open) : 0; }
};

// Null where no servlet was watched.
const ProbeTable* findRequests(const ProbeTables& tables);
// By URI; parts that a page includes stand by themselves, as "page > part".
std::map<std::string, RequestSums> requestSums(const ProbeTables& tables);

void printRequests(Console& console, const ProbeTables& tables, size_t top);
// The fields of an object that the caller has begun.
void writeRequests(JsonWriter& json, const ProbeTables& tables, size_t top);

} // namespace vdk
