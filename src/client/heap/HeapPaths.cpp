#include "client/console/Text.h"
#include "client/heap/HeapClassTable.h"
#include "client/heap/HeapClasses.h"
#include "client/heap/HeapObjectTable.h"
#include "client/heap/HeapPathSearch.h"
#include "client/heap/HeapReport.h"
#include "client/heap/HeapReports.h"
#include "offline/Reachability.h"

#include <algorithm>
#include <memory>
#include <set>

namespace vdk {

namespace {

const size_t ShownClasses = 30;

// Marks the rows of the group that the arguments name: objects by identifier, classes by pattern.
int64_t markGroup(const HeapSession& session, const std::vector<std::string>& names,
                  std::vector<int>& bits, std::vector<int>& rows) {
    std::set<int> classes;
    for (const std::string& name : names) {
        if (isdigit(static_cast<unsigned char>(name[0])) || startsWith(name, "@")) {
            rows.push_back(session.rowOf(name));
            continue;
        }
        std::vector<int> found = session.classesByPattern(name);
        if (found.empty()) {
            throw ClientError(ExitCode::Refused, "heap.noclass",
                              "the heap has no class " + printable(name, 200), HeapClassNameHint);
        }
        classes.insert(found.begin(), found.end());
    }
    if (!classes.empty()) {
        for (int row = 1; row <= session.model().rowCount(); row++) {
            if (!session.model().isClass(row) && classes.count(session.model().classOf(row)) != 0) {
                rows.push_back(row);
            }
        }
    }
    std::sort(rows.begin(), rows.end());
    rows.erase(std::unique(rows.begin(), rows.end()), rows.end());
    for (int row : rows) {
        setMark(bits.data(), row);
    }
    return int64_t(rows.size());
}

} // namespace

int reportHeapPath(Console& console, const Arguments& arguments) {
    const auto& ids = heapArguments(arguments, 1, 1, "an object");
    HeapSession session(console, heapOptions(arguments), true);
    const HeapModel& model = session.model();
    int target = session.rowOf(ids[0]);
    std::vector<int> path = shortestPath(session, target, arguments.has("--weak"));
    HeapDocument document(console, arguments, session, "path");
    if (JsonWriter* json = document.writer()) {
        writePath(*json, session, path);
    } else if (!document.isText()) {
        std::vector<HeapLink> links;
        for (size_t i = 0; i < path.size(); i++) {
            links.push_back({path[i], i == 0 ? "" : nameOfReference(model, path[i - 1], path[i])});
        }
        document.table("path", heapLinkTable(session, links));
    } else if (path.empty()) {
        document.line("no root reaches " + heapLabel(model, target) +
                      (arguments.has("--weak") ? "" : " but through weak references, if at all"));
    } else {
        printPath(console, model, path, "");
    }
    document.end();
    return path.empty() ? int(ExitCode::Refused) : 0;
}

int reportHeapRetained(Console& console, const Arguments& arguments) {
    const auto& names = heapArguments(arguments, 1, SIZE_MAX, "classes or objects");
    HeapSession session(console, heapOptions(arguments), true);
    const size_t words = session.reachedBits().size();
    std::vector<int> group(words, 0);
    std::vector<int> result(words, 0);
    std::vector<int> groupRows;
    int64_t groupCount = markGroup(session, names, group, groupRows);
    const std::vector<int>& roots = session.rootRows();
    markAllButRetained(nullptr, session.storage(), group.data(), nullptr, 0, roots.data(),
                       int(roots.size()), session.reachedBits().data(), result.data());
    // What is left unmarked is reached through the group alone; the group itself, marked by hand,
    // belongs to it.
    std::vector<int> retained;
    int64_t bytes = 0;
    for (int row = 1; row <= session.model().rowCount(); row++) {
        bool own = isMarked(group.data(), row) && session.isReached(row);
        if (own || !isMarked(result.data(), row)) {
            retained.push_back(row);
            bytes += std::max<int64_t>(session.sizeOf(row), 0);
        }
    }
    std::vector<HeapClassSum> sums = sumRowsByClass(session, retained);
    sortSums(sums, SortKey::Shallow);
    HeapDocument document(console, arguments, session, "retained");
    document.field("group", groupCount);
    document.field("count", retained.size());
    document.field("retained", bytes);
    document.line(formatCount(groupCount) +
                  (groupCount == 1 ? " object retains " : " objects retain ") + formatBytes(bytes) +
                  " in " + formatCount(int64_t(retained.size())) +
                  (retained.size() == 1 ? " object" : " objects"));
    const size_t top = heapTop(arguments, document.isText() ? ShownClasses : sums.size());
    document.table("classes", sumTable(sums, top, false));
    document.end();
    return 0;
}

} // namespace vdk
