// The fill of collections, and whose they are.
#include "client/console/Text.h"
#include "client/heap/HeapDocument.h"
#include "client/heap/HeapOwner.h"
#include "client/heap/HeapReport.h"
#include "client/heap/HeapReports.h"
#include "client/heap/reports/CollectionSizes.h"

#include <algorithm>
#include <map>

namespace vdk {

namespace {

const size_t ShownClasses = 20;
const size_t ShownOwners = 20;

struct FillSum {
    int64_t count = 0, empty = 0, sparse = 0, size = 0, capacity = 0, wasted = 0;
    int worst = 0; // row
    int64_t worstBytes = -1;

    void add(int row, const CollectionFill& fill) {
        count++;
        empty += fill.size == 0;
        sparse += fill.size > 0 && fill.size * 4 <= fill.capacity;
        size += fill.size;
        capacity += fill.capacity;
        wasted += fill.wasted;
        if (fill.wasted > worstBytes) {
            worst = row;
            worstBytes = fill.wasted;
        }
    }
};

template <typename Key>
std::vector<std::pair<Key, FillSum>> byWaste(const std::map<Key, FillSum>& sums) {
    std::vector<std::pair<Key, FillSum>> rows(sums.begin(), sums.end());
    std::stable_sort(rows.begin(), rows.end(), [](const auto& a, const auto& b) {
        return a.second.wasted > b.second.wasted;
    });
    return rows;
}

std::vector<HeapTable::Column> fillColumns() {
    return {{"wasted", "wasted", HeapTable::Kind::Bytes},
            {"collections", "count", HeapTable::Kind::Count},
            {"empty", "empty", HeapTable::Kind::Count},
            {"sparse", "sparse", HeapTable::Kind::Count},
            {"elements", "elements", HeapTable::Kind::Count},
            {"slots", "slots", HeapTable::Kind::Count},
            {"", "worst"}};
}

HeapTable::Row fillCells(const HeapModel& model, const FillSum& sum) {
    return {sum.wasted,
            sum.count,
            sum.empty,
            sum.sparse,
            sum.size,
            sum.capacity,
            heapId(model, sum.worst)};
}

} // namespace

int reportHeapCollections(Console& console, const Arguments& arguments) {
    heapArguments(arguments, 0, 0, "no arguments");
    HeapSession session(console, heapOptions(arguments), true);
    const HeapModel& model = session.model();
    const CollectionSizes sizes(model);
    std::map<std::string, FillSum> byClass;
    std::map<std::pair<HeapOwner, int>, FillSum> byOwner; // and class of the collection
    FillSum all;
    for (int row = 1; row <= model.lastRowWithId; row++) {
        CollectionFill fill;
        if (!session.isReached(row) || !sizes.read(row, fill)) {
            continue;
        }
        all.add(row, fill);
        byClass[model.classNameOf(row)].add(row, fill);
        if (fill.wasted > 0) {
            byOwner[{HeapOwner::of(session, row), model.classOf(row)}].add(row, fill);
        }
    }
    std::vector<HeapTable::Column> columns = fillColumns();
    columns.push_back({"class", "class"});
    HeapTable classes(columns);
    const auto classRows = byWaste(byClass);
    const size_t topClasses = std::min(classRows.size(), heapTop(arguments, ShownClasses));
    for (size_t i = 0; i < topClasses; i++) {
        HeapTable::Row row = fillCells(model, classRows[i].second);
        row.emplace_back(classRows[i].first);
        classes.add(std::move(row));
    }
    classes.setOmitted(classRows.size() - topClasses);
    columns.push_back({"held by", "owner"});
    HeapTable owners(columns);
    const auto ownerRows = byWaste(byOwner);
    const size_t topOwners = std::min(ownerRows.size(), heapTop(arguments, ShownOwners));
    for (size_t i = 0; i < topOwners; i++) {
        HeapTable::Row row = fillCells(model, ownerRows[i].second);
        row.emplace_back(model.classes[size_t(ownerRows[i].first.second)].name);
        row.emplace_back(ownerRows[i].first.first.text(model));
        owners.add(std::move(row));
    }
    owners.setOmitted(ownerRows.size() - topOwners);
    HeapDocument document(console, arguments, session, "collections");
    document.field("count", all.count);
    document.field("wasted", all.wasted);
    document.line(formatCount(all.count) + " collections; arrays of the right size would take " +
                  formatBytes(all.wasted) + " less");
    document.table("classes", classes);
    document.table("owners", owners, "By what holds them");
    document.end();
    return 0;
}

} // namespace vdk
