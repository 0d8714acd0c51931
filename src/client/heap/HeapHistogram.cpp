#include "client/console/Text.h"
#include "client/heap/HeapClassTable.h"
#include "client/heap/HeapReport.h"
#include "client/heap/HeapReports.h"

#include <algorithm>
#include <map>
#include <memory>

namespace vdk {

namespace {

const size_t HistogramClasses = 50;

} // namespace

int reportHeapHistogram(Console& console, const Arguments& arguments) {
    const auto& patterns = heapArguments(arguments, 0, 1, "at most a pattern of class names");
    bool analyze = !arguments.has("--no-retained");
    HeapSession session(console, heapOptions(arguments), analyze);
    std::vector<HeapClassSum> sums = sumByClass(session, analyze);
    const HeapTotals totals = totalsOf(session, sums);
    if (!patterns.empty()) {
        std::vector<int> wanted = session.classesByPattern(patterns[0]);
        sums.erase(std::remove_if(sums.begin(), sums.end(),
                                  [&](const HeapClassSum& sum) {
                                      return !std::binary_search(wanted.begin(), wanted.end(),
                                                                 sum.classIndex);
                                  }),
                   sums.end());
        if (sums.empty()) {
            console.note("no class matches " + printable(patterns[0], 200) + "; " +
                         HeapClassNameHint);
        }
    }
    sortSums(sums, sortKey(arguments, analyze));
    size_t top = heapTop(arguments, console.json ? sums.size() : HistogramClasses);
    if (console.json) {
        JsonWriter json(console.out, true);
        beginHeapDocument(json, "vdk.heap.histogram/1", session);
        json.field("count", totals.count).field("shallow", totals.shallow);
        writeSums(json, sums, top, analyze);
        json.endObject();
        return 0;
    }
    printSums(console, sums, top, analyze);
    HeapClassSum all;
    all.count = totals.count;
    all.shallow = totals.shallow;
    printTotals(console, sums, all, !patterns.empty());
    return 0;
}

} // namespace vdk
