#include "client/heap/HeapClasses.h"

#include "heapfile/ParallelTasks.h"
#include "offline/ObjectStorage.h"

#include <algorithm>

namespace vdk {

namespace {

constexpr size_t RowsPerTask = 1 << 18;

// A row in the dominator tree: children as a linked list, by row. Beside them its group, so that a
// walk touches one stretch of memory a row.
struct TreeRow {
    int firstChild = 0;
    int nextSibling = 0;
    int group = 0;
};

// Children ascend.
void linkChildren(const ObjectStorage& storage, std::vector<TreeRow>& tree) {
    constexpr int Ahead = 24;
    for (int row = storage.getObjectCount() - 1; row > 0; row--) {
        __builtin_prefetch(&tree[size_t(storage.getDominator(row > Ahead ? row - Ahead : 0))], 1);
        TreeRow& dominator = tree[size_t(storage.getDominator(row))];
        tree[size_t(row)].nextSibling = dominator.firstChild;
        dominator.firstChild = row;
    }
}

// Walks the dominator tree and adds the retained size of each object that has no object of its
// group above it. `open` counts the objects of each group on the way from the root.
void addRetained(const HeapSession& session, const std::vector<TreeRow>& tree,
                 std::vector<HeapClassSum>& sums) {
    std::vector<int> open(sums.size(), 0);
    std::vector<int> way;
    int row = tree[0].firstChild;
    while (row != 0 || !way.empty()) {
        if (row == 0) {
            const TreeRow& left = tree[size_t(way.back())];
            way.pop_back();
            open[size_t(left.group)]--;
            row = left.nextSibling;
            continue;
        }
        const TreeRow& entered = tree[size_t(row)];
        __builtin_prefetch(&tree[size_t(entered.nextSibling)]);
        const auto group = size_t(entered.group);
        if (open[group] == 0) {
            sums[group].retained += session.retainedOf(row);
        }
        if (entered.firstChild == 0) {
            row = entered.nextSibling;
            continue;
        }
        open[group]++;
        way.push_back(row);
        row = entered.firstChild;
    }
}

template <typename GroupOf>
void addUp(const HeapSession& session, GroupOf groupOf, int workers, bool retained,
           std::vector<HeapClassSum>& sums) {
    const HeapModel& model = session.model();
    // Asked once a row: an object's group is looked up in two tables.
    std::vector<TreeRow> tree(size_t(model.rowCount()) + 1);
    std::vector<std::vector<HeapClassSum>> parts(size_t(workers), sums);
    runParallel(
        tree.size() / RowsPerTask + 1, workers,
        [&](size_t task, int worker) {
            std::vector<HeapClassSum>& part = parts[size_t(worker)];
            const size_t end = std::min(tree.size(), (task + 1) * RowsPerTask);
            for (size_t i = std::max<size_t>(task * RowsPerTask, 1); i < end; i++) {
                const int row = int(i);
                tree[i].group = groupOf(row);
                // A row that nothing but a reference tells of has no size, and classes that the
                // file only mentions are no objects of it.
                const int64_t size = row <= model.lastRowWithId ? session.sizeOf(row) : -1;
                if (size >= 0) {
                    HeapClassSum& sum = part[size_t(tree[i].group)];
                    sum.count++;
                    sum.shallow += size;
                }
            }
        },
        [](size_t) {});
    for (const std::vector<HeapClassSum>& part : parts) {
        for (size_t i = 0; i < sums.size(); i++) {
            sums[i].count += part[i].count;
            sums[i].shallow += part[i].shallow;
        }
    }
    if (retained) {
        linkChildren(session.storage(), tree);
        addRetained(session, tree, sums);
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
        session, [&](int row) { return model.classOf(row) + 1; }, session.threads(), retained,
        sums);
    return withoutEmpty(std::move(sums));
}

std::vector<HeapClassSum> sumByGroup(const HeapSession& session, size_t groups,
                                     const std::function<int(int row)>& groupOf, bool retained) {
    std::vector<HeapClassSum> sums(groups);
    // The function may remember what it found.
    addUp(session, groupOf, 1, retained, sums);
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
