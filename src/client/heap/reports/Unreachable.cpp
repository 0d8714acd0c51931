// What no root reaches, by class.
#include "client/console/Text.h"
#include "client/heap/HeapClasses.h"
#include "client/heap/HeapDocument.h"
#include "client/heap/HeapReport.h"
#include "client/heap/HeapReports.h"

#include <algorithm>

namespace vdk {

int reportHeapUnreachable(Console& console, const Arguments& arguments) {
    heapArguments(arguments, 0, 0, "no arguments");
    HeapSession session(console, heapOptions(arguments), true);
    std::vector<int> rows;
    int64_t bytes = 0;
    for (int row = 1; row <= session.model().lastRowWithId; row++) {
        if (!session.isReached(row) && session.sizeOf(row) >= 0) {
            rows.push_back(row);
            bytes += session.sizeOf(row);
        }
    }
    std::vector<HeapClassSum> sums = sumRowsByClass(session, rows);
    std::stable_sort(sums.begin(), sums.end(),
                     [](const auto& a, const auto& b) { return a.shallow > b.shallow; });
    const size_t top = std::min(sums.size(), heapTop(arguments, 30));
    HeapTable table({{"objects", "count", HeapTable::Kind::Count},
                     {"shallow", "shallow", HeapTable::Kind::Bytes},
                     {"class", "class"}});
    for (size_t i = 0; i < top; i++) {
        table.add({sums[i].count, sums[i].shallow, sums[i].name});
    }
    table.setOmitted(sums.size() - top);
    HeapDocument document(console, arguments, session, "unreachable");
    document.field("count", rows.size());
    document.field("shallow", bytes);
    document.table("classes", table);
    document.line(formatCount(int64_t(rows.size())) + " objects, " + formatBytes(bytes) +
                  ", that no root reaches");
    document.end();
    return 0;
}

} // namespace vdk
