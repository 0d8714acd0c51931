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
// class above it. `open` counts the objects of each class on the way from the root.
void addRetained(const HeapSession& session, std::vector<HeapClassSum>& sums) {
    const ObjectStorage& storage = session.storage();
    DominatorChildren children(storage);
    std::vector<int> open(sums.size(), 0);
    std::vector<int> way;
    int row = children.firstOf(0);
    while (row != 0 || !way.empty()) {
        if (row == 0) {
            row = way.back();
            way.pop_back();
            open[size_t(session.model().classOf(row) + 1)]--;
            row = children.nextOf(row);
            continue;
        }
        size_t type = size_t(session.model().classOf(row) + 1);
        if (open[type]++ == 0) {
            sums[type].retained += session.retainedOf(row);
        }
        way.push_back(row);
        row = children.firstOf(row);
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
    for (int row = 1; row <= model.rowCount(); row++) {
        const int64_t size = session.sizeOf(row);
        HeapClassSum& sum = sums[size_t(model.classOf(row) + 1)];
        // A row that nothing but a reference tells of has no size, and classes that the file only
        // mentions are no objects of it.
        if (size < 0 || row > model.lastRowWithId) {
            continue;
        }
        sum.count++;
        sum.shallow += size;
    }
    if (retained) {
        addRetained(session, sums);
    }
    return withoutEmpty(std::move(sums));
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

} // namespace vdk
