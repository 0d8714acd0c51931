#include "client/console/Text.h"
#include "client/heap/HeapClassTable.h"
#include "client/heap/HeapClasses.h"
#include "client/heap/HeapObjectTable.h"
#include "client/heap/HeapReport.h"
#include "client/heap/HeapReports.h"
#include "client/heap/HeapRowPass.h"
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

// Rows at which those beyond the biggest are let go.
size_t heldFor(size_t top) {
    return std::max<size_t>(std::min(top, SIZE_MAX / 4) * 4, 4096);
}

// All rows that `include` takes, cut down to the biggest now and then so that few are held.
template <typename Include>
std::vector<int> biggestRows(const HeapSession& session, size_t top, Include include,
                             int64_t& count) {
    std::vector<int> rows;
    for (int row = 1; row <= session.model().rowCount(); row++) {
        if (!include(row)) {
            continue;
        }
        count++;
        rows.push_back(row);
        if (rows.size() >= heldFor(top)) {
            keepBiggest(session, rows, top);
        }
    }
    keepBiggest(session, rows, top);
    return rows;
}

// The children of a row by class, largest first.
std::vector<HeapClassSum> childrenByClass(const HeapSession& session, int parent, int64_t& count) {
    std::vector<int> rows;
    for (int row = 1; row <= session.model().rowCount(); row++) {
        if (session.storage().getDominator(row) == parent && session.isReached(row)) {
            rows.push_back(row);
        }
    }
    count = int64_t(rows.size());
    std::vector<HeapClassSum> sums = sumRowsByClass(session, rows);
    sortSums(sums, SortKey::Retained);
    return sums;
}

void writeObject(HeapDocument& document, const HeapSession& session, int row) {
    if (JsonWriter* json = document.writer()) {
        json->key("object").beginObject();
        writeHeapObject(*json, session, row);
        json->endObject();
    }
}

int writeLinks(Console& console, const Arguments& arguments, const HeapSession& session,
               const char* name, int row, const std::vector<HeapLink>& links, int64_t count) {
    HeapDocument document(console, arguments, session, name);
    writeObject(document, session, row);
    document.line(heapLabel(session.model(), row));
    document.field("count", count);
    HeapTable table = heapLinkTable(session, links);
    table.setOmitted(size_t(count) - links.size());
    document.table("references", table);
    document.end();
    return 0;
}

} // namespace

std::vector<int> biggestObjects(const HeapSession& session, size_t top) {
    std::vector<std::vector<int>> parts(size_t(session.threads()), std::vector<int>{});
    std::vector<int64_t> least(parts.size(), INT64_MIN); // of what a part holds, if it holds enough
    passOverRows(session, HeapRowBlock::Retained, session.threads(),
                 [&](int worker, const HeapRowBlock& block) {
                     std::vector<int>& rows = parts[size_t(worker)];
                     int64_t& enough = least[size_t(worker)];
                     for (int i = 0; i < block.count; i++) {
                         const int row = block.firstRow + i;
                         if (block.retained[size_t(i)] < enough || !session.isReached(row)) {
                             continue;
                         }
                         rows.push_back(row);
                         if (rows.size() >= heldFor(top)) {
                             keepBiggest(session, rows, top);
                             enough = rows.empty() ? enough : session.retainedOf(rows.back());
                         }
                     }
                 });
    std::vector<int> rows;
    for (const std::vector<int>& part : parts) {
        rows.insert(rows.end(), part.begin(), part.end());
    }
    keepBiggest(session, rows, top);
    return rows;
}

int reportHeapBiggest(Console& console, const Arguments& arguments) {
    heapArguments(arguments, 0, 0, "no arguments");
    HeapSession session(console, heapOptions(arguments), true);
    const std::vector<int> rows = biggestObjects(session, heapTop(arguments, ShownObjects));
    HeapDocument document(console, arguments, session, "biggest");
    document.table("objects", heapObjectTable(session, rows));
    document.end();
    return 0;
}

int reportHeapDominators(Console& console, const Arguments& arguments) {
    const auto& ids = heapArguments(arguments, 0, 1, "at most an object");
    HeapSession session(console, heapOptions(arguments), true);
    int parent = ids.empty() ? 0 : session.rowOf(ids[0]);
    size_t top = heapTop(arguments, ShownObjects);
    HeapDocument document(console, arguments, session, "dominators");
    if (parent != 0) {
        const int above = session.storage().getDominator(parent);
        document.line(heapLabel(session.model(), parent) + " retains " +
                      formatBytes(session.retainedOf(parent)) + ", dominated by " +
                      (above == 0 ? "no object" : heapLabel(session.model(), above)));
        writeObject(document, session, parent);
    }
    int64_t count = 0;
    if (arguments.has("--by-class")) {
        const std::vector<HeapClassSum> sums = childrenByClass(session, parent, count);
        document.field("count", count);
        document.table("classes", sumTable(sums, top, true));
        document.end();
        return 0;
    }
    const std::vector<int> rows = biggestRows(
        session, top,
        [&](int row) {
            return session.storage().getDominator(row) == parent && session.isReached(row);
        },
        count);
    HeapTable table = heapObjectTable(session, rows);
    table.setOmitted(size_t(count) - rows.size());
    document.field("count", count);
    document.table("objects", table);
    document.end();
    return 0;
}

int reportHeapReferences(Console& console, const Arguments& arguments) {
    const auto& ids = heapArguments(arguments, 1, 1, "an object");
    HeapOptions options = heapOptions(arguments);
    HeapSession session(console, options, !options.index.empty());
    int row = session.rowOf(ids[0]);
    size_t top = heapTop(arguments, ShownReferences);
    std::vector<HeapLink> links;
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
    return writeLinks(console, arguments, session, "refs", row, links, count);
}

int reportHeapReferrers(Console& console, const Arguments& arguments) {
    const auto& ids = heapArguments(arguments, 1, 1, "an object");
    HeapSession session(console, heapOptions(arguments), true);
    const int row = session.rowOf(ids[0]);
    const size_t top = heapTop(arguments, ShownReferences);
    const ObjectStorage& storage = session.storage();
    std::vector<HeapLink> links;
    int64_t count = 0;
    const auto addLinksOf = [&](int source) {
        BigIntArrayIterator64 list = storage.getReferences().initReferenceIterator(source);
        for (int position = 0; list.hasNext(); position++) {
            if (list.next() != row) {
                continue;
            }
            if (links.size() < top) {
                links.push_back({source, session.model().referenceName(source, position)});
            }
            count++;
        }
    };
    const RefTable* const referrers =
        session.isShared() ? &session.referrers() : storage.getBackwardReferences();
    if (referrers == nullptr) { // one pass over all references is less than the table of them
        for (int source = 1; source <= session.model().rowCount(); source++) {
            addLinksOf(source);
        }
        return writeLinks(console, arguments, session, "referrers", row, links, count);
    }
    int last = 0;
    for (int i = 0; i < referrers->getCount(row) && links.size() < top; i++) {
        const int source = referrers->getRef(row, i);
        // A referrer stands in the list once for each reference.
        if (source != last) {
            addLinksOf(source);
        }
        last = source;
    }
    return writeLinks(console, arguments, session, "referrers", row, links,
                      referrers->getCount(row));
}

} // namespace vdk
