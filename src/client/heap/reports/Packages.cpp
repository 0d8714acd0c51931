// Objects by the package of their class.
#include "client/console/Text.h"
#include "client/heap/HeapClassTable.h"
#include "client/heap/HeapClasses.h"
#include "client/heap/HeapDocument.h"
#include "client/heap/HeapReport.h"
#include "client/heap/HeapReports.h"
#include "client/heap/reports/LoaderGroups.h"

#include <algorithm>

namespace vdk {

int reportHeapPackages(Console& console, const Arguments& arguments) {
    const auto& patterns = heapArguments(arguments, 0, 1, "at most a pattern of package names");
    const bool analyze = !arguments.has("--no-retained");
    HeapSession session(console, heapOptions(arguments), analyze);
    const PackageGroups groups(session.model());
    std::vector<HeapClassSum> sums =
        sumByGroup(session, groups.count(), groups.functionOf(), analyze);
    for (size_t i = 0; i < sums.size(); i++) {
        sums[i].name = groups.nameOf(i);
    }
    sums.erase(std::remove_if(sums.begin(), sums.end(),
                              [&](const HeapClassSum& sum) {
                                  return sum.count == 0 ||
                                         (!patterns.empty() &&
                                          !classNameMatches(patterns[0], sum.name));
                              }),
               sums.end());
    sortSums(sums, sortKey(arguments, analyze));
    const size_t top = std::min(sums.size(), heapTop(arguments, 30));
    HeapTable table({{"objects", "count", HeapTable::Kind::Count},
                     {"shallow", "shallow", HeapTable::Kind::Bytes},
                     {analyze ? "retained" : "", analyze ? "retained" : "", HeapTable::Kind::Bytes},
                     {"package", "package"}});
    for (size_t i = 0; i < top; i++) {
        table.add({sums[i].count, sums[i].shallow, sums[i].retained, sums[i].name});
    }
    table.setOmitted(sums.size() - top);
    HeapDocument document(console, arguments, session, "packages");
    document.table("packages", table);
    document.end();
    return 0;
}

} // namespace vdk
