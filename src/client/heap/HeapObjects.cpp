#include "client/console/Text.h"
#include "client/heap/HeapClasses.h"
#include "client/heap/HeapReport.h"
#include "client/heap/HeapReports.h"
#include "offline/ObjectStorage.h"

#include <algorithm>

namespace vdk {

namespace {

const size_t ShownObjects = 30;
const size_t ShownReferences = 200;

// The rows of most retained bytes, in falling order; rows with the same size in rising order.
void keepBiggest(const HeapSession& session, std::vector<int>& rows, size_t top) {
    auto more = [&](int a, int b) {
        const int64_t sizeA = session.retainedOf(a);
        const int64_t sizeB = session.retainedOf(b);
        return sizeA != sizeB ? sizeA > sizeB : a < b;
    };
    top = std::min(top, rows.size());
    std::partial_sort(rows.begin(), rows.begin() + std::ptrdiff_t(top), rows.end(), more);
    rows.resize(top);
}

// All rows that `include` takes, cut down to the biggest now and then so that few are held.
template <typename Include>
std::vector<int> biggestRows(const HeapSession& session, size_t top, Include include,
                             int64_t& count) {
    std::vector<int> rows;
    const size_t held = std::max<size_t>(top * 4, 4096);
    for (int row = 1; row <= session.model().rowCount(); row++) {
        if (!include(row)) {
            continue;
        }
        count++;
        rows.push_back(row);
        if (rows.size() >= held && rows.size() > top) {
            keepBiggest(session, rows, top);
        }
    }
    keepBiggest(session, rows, top);
    return rows;
}

void printObjects(Console& console, const HeapSession& session, const std::vector<int>& rows) {
    TextTable table({{"retained", TextTable::Right}, {"shallow", TextTable::Right}, {"object"}});
    for (int row : rows) {
        table.add({formatBytes(session.retainedOf(row)), formatBytes(session.sizeOf(row)),
                   heapLabel(session.model(), row)});
    }
    table.print(console);
}

void writeObjects(JsonWriter& json, const HeapSession& session, const std::vector<int>& rows) {
    json.key("objects").beginArray();
    for (int row : rows) {
        json.beginObject();
        writeHeapObject(json, session, row);
        json.endObject();
    }
    json.endArray();
}

// The children of a row grouped by class, largest first.
int reportChildrenByClass(Console& console, const HeapSession& session, int parent, size_t top) {
    std::vector<int> rows;
    for (int row = 1; row <= session.model().rowCount(); row++) {
        if (session.storage().getDominator(row) == parent && session.isReached(row)) {
            rows.push_back(row);
        }
    }
    std::vector<HeapClassSum> sums = sumRowsByClass(session, rows);
    std::sort(sums.begin(), sums.end(), [](const HeapClassSum& a, const HeapClassSum& b) {
        return a.retained != b.retained ? a.retained > b.retained : a.name < b.name;
    });
    if (console.json) {
        JsonWriter json(console.out, true);
        beginHeapDocument(json, "vdk.heap.dominators/1", session);
        json.field("count", int64_t(rows.size())).key("classes").beginArray();
        for (size_t i = 0; i < sums.size() && i < top; i++) {
            json.beginObject().field("class", sums[i].name).field("count", sums[i].count);
            json.field("shallow", sums[i].shallow).field("retained", sums[i].retained).endObject();
        }
        json.endArray().endObject();
        return 0;
    }
    TextTable table({{"objects", TextTable::Right},
                     {"retained", TextTable::Right},
                     {"shallow", TextTable::Right},
                     {"class"}});
    for (size_t i = 0; i < sums.size() && i < top; i++) {
        table.add({formatCount(sums[i].count), formatBytes(sums[i].retained),
                   formatBytes(sums[i].shallow), printable(sums[i].name)});
    }
    table.print(console);
    return 0;
}

struct Link {
    int row;
    std::string name;
};

int printLinks(Console& console, const HeapSession& session, const char* schema, int row,
               const std::vector<Link>& links, int64_t count) {
    const bool analyzed = !session.reachedBits().empty();
    if (console.json) {
        JsonWriter json(console.out, true);
        beginHeapDocument(json, schema, session);
        json.key("object").beginObject();
        writeHeapObject(json, session, row);
        json.endObject().field("count", count).key("references").beginArray();
        for (const Link& link : links) {
            json.beginObject().field("name", link.name);
            writeHeapObject(json, session, link.row);
            json.endObject();
        }
        json.endArray().endObject();
        return 0;
    }
    console.out << heapLabel(session.model(), row) << "\n";
    std::vector<TextTable::Column> columns = {{"shallow", TextTable::Right}};
    if (analyzed) {
        columns.push_back({"retained", TextTable::Right});
    }
    columns.push_back({"name"});
    columns.push_back({"object"});
    TextTable table(columns);
    for (const Link& link : links) {
        std::vector<std::string> cells = {formatBytes(session.sizeOf(link.row))};
        if (analyzed) {
            cells.push_back(formatBytes(session.retainedOf(link.row)));
        }
        cells.push_back(printable(link.name));
        cells.push_back(heapLabel(session.model(), link.row));
        table.add(std::move(cells));
    }
    table.print(console);
    if (count > int64_t(links.size())) {
        console.out << "(" << formatCount(count - int64_t(links.size())) << " more)\n";
    }
    return 0;
}

} // namespace

std::vector<int> biggestObjects(const HeapSession& session, size_t top) {
    int64_t count = 0;
    return biggestRows(
        session, top, [&](int row) { return session.isReached(row); }, count);
}

int reportHeapBiggest(Console& console, const Arguments& arguments) {
    heapArguments(arguments, 0, 0, "no arguments");
    HeapSession session(console, heapOptions(arguments), true);
    const std::vector<int> rows = biggestObjects(session, heapTop(arguments, ShownObjects));
    if (console.json) {
        JsonWriter json(console.out, true);
        beginHeapDocument(json, "vdk.heap.biggest/1", session);
        writeObjects(json, session, rows);
        json.endObject();
    } else {
        printObjects(console, session, rows);
    }
    return 0;
}

int reportHeapDominators(Console& console, const Arguments& arguments) {
    const auto& ids = heapArguments(arguments, 0, 1, "at most an object");
    HeapSession session(console, heapOptions(arguments), true);
    int parent = ids.empty() ? 0 : session.rowOf(ids[0]);
    size_t top = heapTop(arguments, ShownObjects);
    if (!console.json && parent != 0) {
        console.out << heapLabel(session.model(), parent) << " retains "
                    << formatBytes(session.retainedOf(parent));
        int above = session.storage().getDominator(parent);
        console.out << (above == 0 ? std::string(", dominated by no object")
                                   : ", dominated by " + heapLabel(session.model(), above))
                    << "\n";
    }
    if (arguments.has("--by-class")) {
        return reportChildrenByClass(console, session, parent, top);
    }
    int64_t count = 0;
    std::vector<int> rows = biggestRows(
        session, top,
        [&](int row) {
            return session.storage().getDominator(row) == parent && session.isReached(row);
        },
        count);
    if (console.json) {
        JsonWriter json(console.out, true);
        beginHeapDocument(json, "vdk.heap.dominators/1", session);
        if (parent != 0) {
            json.key("object").beginObject();
            writeHeapObject(json, session, parent);
            json.endObject();
        }
        json.field("count", count);
        writeObjects(json, session, rows);
        json.endObject();
        return 0;
    }
    printObjects(console, session, rows);
    if (count > int64_t(rows.size())) {
        console.out << "(" << formatCount(count - int64_t(rows.size())) << " more)\n";
    }
    return 0;
}

int reportHeapReferences(Console& console, const Arguments& arguments) {
    const auto& ids = heapArguments(arguments, 1, 1, "an object");
    HeapOptions options = heapOptions(arguments);
    HeapSession session(console, options, !options.index.empty());
    int row = session.rowOf(ids[0]);
    size_t top = heapTop(arguments, ShownReferences);
    std::vector<Link> links;
    int64_t count = 0;
    for (int i = 0; i < session.storage().getRefCount(row); i++) {
        int target = session.storage().getRef(row, i);
        if (target == 0) {
            continue;
        }
        if (links.size() < top) {
            links.push_back({target, session.model().referenceName(row, i)});
        }
        count++;
    }
    return printLinks(console, session, "vdk.heap.refs/1", row, links, count);
}

int reportHeapReferrers(Console& console, const Arguments& arguments) {
    const auto& ids = heapArguments(arguments, 1, 1, "an object");
    HeapSession session(console, heapOptions(arguments), true);
    int row = session.rowOf(ids[0]);
    const RefTable& referrers = *session.storage().getBackwardReferences();
    size_t top = heapTop(arguments, ShownReferences);
    std::vector<Link> links;
    int last = 0;
    int lastPosition = -1;
    for (int i = 0; i < referrers.getCount(row); i++) {
        int source = referrers.getRef(row, i);
        // A referrer stands in the list once for each reference; find the next of them.
        int position = source == last ? lastPosition + 1 : 0;
        while (position < session.storage().getRefCount(source) &&
               session.storage().getRef(source, position) != row) {
            position++;
        }
        last = source;
        lastPosition = position;
        if (links.size() >= top) {
            break;
        }
        links.push_back({source, session.model().referenceName(source, position)});
    }
    return printLinks(console, session, "vdk.heap.referrers/1", row, links,
                      referrers.getCount(row));
}

} // namespace vdk
