#include "client/commands/Commands.h"
#include "client/heap/HeapReport.h"

#include <algorithm>

namespace vdk {

namespace {

struct HeapReportRow {
    const char* name;
    int (*run)(Console& console, const Arguments& arguments);
    bool graphNeeded; // shows more than sizes and the dominator tree
};

// The choices of REPORT in the table of commands.
const HeapReportRow Reports[] = {
    {"summary", reportHeapSummary, false}, {"histogram", reportHeapHistogram, true},
    {"biggest", reportHeapBiggest, false}, {"dominators", reportHeapDominators, false},
    {"refs", reportHeapReferences, true},  {"referrers", reportHeapReferrers, true},
    {"path", reportHeapPath, true},        {"retained", reportHeapRetained, true},
    {"strings", reportHeapStrings, true},  {"arrays", reportHeapArrays, true},
    {"diff", reportHeapDiff, true},        {"generations", reportHeapGenerations, true},
    {"sites", reportHeapSites, true},
};

const HeapReportRow& reportRow(const Arguments& arguments) {
    std::string name = arguments.text("REPORT", "summary");
    for (const HeapReportRow& report : Reports) {
        if (name == report.name) {
            return report;
        }
    }
    throw ClientError(ExitCode::Usage, "usage", "there is no report " + name);
}

} // namespace

bool heapReportNeedsGraph(const Arguments& arguments) {
    return reportRow(arguments).graphNeeded;
}

int runHeap(Console& console, const Arguments& arguments) {
    int code = reportRow(arguments).run(console, arguments);
    if (console.json) {
        console.out << "\n";
    }
    return code;
}

} // namespace vdk
