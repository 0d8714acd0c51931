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
    HeapDocument document(console, arguments, session, "histogram");
    document.field("count", totals.count);
    document.field("shallow", totals.shallow);
    const size_t top = heapTop(arguments, document.isText() ? HistogramClasses : sums.size());
    document.table("classes", sumTable(sums, top, analyze));
    HeapClassSum all;
    all.count = totals.count;
    all.shallow = totals.shallow;
    document.line(totalsText(sums, all, !patterns.empty()));
    document.end();
    return 0;
}

} // namespace vdk
