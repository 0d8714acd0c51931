#include "client/Commands.h"
#include "client/HeapReport.h"

#include <algorithm>

namespace vdk {

namespace {

struct HeapReportRow {
    const char* name;
    int (*run)(Console& console, const Arguments& arguments);
};

// The choices of REPORT in the table of commands.
const HeapReportRow Reports[] = {
    {"summary", reportHeapSummary}, {"histogram", reportHeapHistogram},
    {"biggest", reportHeapBiggest}, {"dominators", reportHeapDominators},
    {"refs", reportHeapReferences}, {"referrers", reportHeapReferrers},
    {"path", reportHeapPath},       {"retained", reportHeapRetained},
    {"strings", reportHeapStrings}, {"arrays", reportHeapArrays},
    {"diff", reportHeapDiff},
};

} // namespace

int runHeap(Console& console, const Arguments& arguments) {
    std::string name = arguments.text("REPORT", "summary");
    for (const HeapReportRow& report : Reports) {
        if (name == report.name)
            return report.run(console, arguments);
    }
    throw ClientError(ExitCode::Usage, "usage", "there is no report " + name);
}

} // namespace vdk
