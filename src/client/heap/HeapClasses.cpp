#include "client/heap/HeapClasses.h"

#include "offline/ObjectStorage.h"

#include <algorithm>

namespace vdk {

namespace {

// Children of each row in the dominator tree as linked lists: first child and next sibling by row.
class DominatorChildren {
public:
    explicit DominatorChildren(const ObjectStorage& storage)
        : first(size_t(storage.getObjectCount()), 0), next(first.size(), 0) {
        for (int row = storage.getObjectCount() - 1; row > 0; row--) {
            size_t dominator = size_t(storage.getDominator(row));
            next[size_t(row)] = first[dominator];
            first[dominator] = row;
        }
    }
    int firstOf(int row) const { return first[size_t(row)]; }
    int nextOf(int row) const { return next[size_t(row)]; }

private:
    std::vector<int> first;
    std::vector<int> next;
};

// Walks the dominator tree and adds the retained size of each object that has no object of its
// group above it. groups: of each row. `open` counts the objects of each group on the way from the
// root.
void addRetained(const HeapSession& session, const std::vector<int>& groups,
                 std::vector<HeapClassSum>& sums) {
    const ObjectStorage& storage = session.storage();
    DominatorChildren children(storage);
    std::vector<int> open(sums.size(), 0);
    std::vector<int> way;
    int row = children.firstOf(0);
    while (row != 0 || !way.empty()) {
        if (row == 0) {
            row = way.back();
            way.pop_back();
            open[size_t(groups[size_t(row)])]--;
            row = children.nextOf(row);
            continue;
        }
        const auto group = size_t(groups[size_t(row)]);
        if (open[group]++ == 0) {
            sums[group].retained += session.retainedOf(row);
        }
        way.push_back(row);
        row = children.firstOf(row);
    }
}

template <typename GroupOf>
void addUp(const HeapSession& session, GroupOf groupOf, bool retained,
           std::vector<HeapClassSum>& sums) {
    const HeapModel& model = session.model();
    // Asked once a row: an object's group is looked up in two tables.
    std::vector<int> groups(size_t(model.rowCount()) + 1);
    for (int row = 1; row <= model.rowCount(); row++) {
        groups[size_t(row)] = groupOf(row);
    }
    // A row that nothing but a reference tells of has no size, and classes that the file only
    // mentions are no objects of it.
    for (int row = 1; row <= model.lastRowWithId; row++) {
        const int64_t size = session.sizeOf(row);
        if (size >= 0) {
            HeapClassSum& sum = sums[size_t(groups[size_t(row)])];
            sum.count++;
            sum.shallow += size;
        }
    }
    if (retained) {
        addRetained(session, groups, sums);
    }
}

std::vector<HeapClassSum> emptySums(const HeapModel& model) {
    std::vector<HeapClassSum> sums(model.classes.size() + 1);
    sums[0].name = "?";
    for (size_t i = 0; i < model.classes.size(); i++) {
        sums[i + 1].classIndex = int(i);
        sums[i + 1].name = model.classes[i].name;
    }
    return sums;
}

std::vector<HeapClassSum> withoutEmpty(std::vector<HeapClassSum> sums) {
    std::vector<HeapClassSum> result;
    for (HeapClassSum& sum : sums) {
        if (sum.count > 0) {
            result.push_back(std::move(sum));
        }
    }
    return result;
}

} // namespace

std::vector<HeapClassSum> sumByClass(const HeapSession& session, bool retained) {
    const HeapModel& model = session.model();
    std::vector<HeapClassSum> sums = emptySums(model);
    addUp(
        session, [&](int row) { return model.classOf(row) + 1; }, retained, sums);
    return withoutEmpty(std::move(sums));
}

std::vector<HeapClassSum> sumByGroup(const HeapSession& session, size_t groups,
                                     const std::function<int(int row)>& groupOf, bool retained) {
    std::vector<HeapClassSum> sums(groups);
    addUp(session, groupOf, retained, sums);
    return sums;
}

std::vector<HeapClassSum> sumRowsByClass(const HeapSession& session, const std::vector<int>& rows) {
    const HeapModel& model = session.model();
    std::vector<HeapClassSum> sums = emptySums(model);
    for (int row : rows) {
        HeapClassSum& sum = sums[size_t(model.classOf(row) + 1)];
        sum.count++;
        sum.shallow += std::max<int64_t>(session.sizeOf(row), 0);
        sum.retained += session.retainedOf(row);
    }
    return withoutEmpty(std::move(sums));
}

HeapTotals totalsOf(const HeapSession& session, const std::vector<HeapClassSum>& sums) {
    HeapTotals totals;
    for (const HeapClassSum& sum : sums) {
        totals.count += sum.count;
        totals.shallow += sum.shallow;
    }
    for (int row = 1; row <= session.model().lastRowWithId; row++) {
        const int64_t size = session.sizeOf(row);
        if (!session.isReached(row) && size >= 0) {
            totals.unreachable++;
            totals.unreachableBytes += size;
        }
    }
    return totals;
}

} // namespace vdk
