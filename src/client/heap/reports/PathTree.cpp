#include "client/heap/reports/PathTree.h"

#include <algorithm>

namespace vdk {

namespace {

const int AnyElement = -1;
const int OwnClass = -2; // one object of a class leads to the next

} // namespace

HeapPathTree::HeapPathTree(const HeapSession& session, const HeapClassSet& wanted,
                           const HeapReferenceKinds& kinds)
    : session(session), model(session.model()), from(size_t(model.rowCount()) + 1),
      isOnWay(from.size()), step(from.size(), -1) {
    search(kinds);
    markWays(wanted);
    merge(wanted);
}

void HeapPathTree::search(const HeapReferenceKinds& kinds) {
    for (const HeapRoot& root : model.roots) {
        if (root.row == 0) {
            continue;
        }
        const auto [known, isNew] = rootOf.try_emplace(root.row, &root);
        if (isNew) {
            from[size_t(root.row)] = root.row;
            order.push_back(root.row);
        } else if (known->second->frame < 0 && root.frame >= 0) {
            known->second = &root; // a frame says more
        }
    }
    for (size_t head = 0; head < order.size(); head++) {
        const int row = order[head];
        const int passedPlace = kinds.passedPlace(row);
        BigIntArrayIterator64 targets =
            session.storage().getReferences().initReferenceIterator(row);
        for (int place = 0; targets.hasNext(); place++) {
            const int to = targets.next();
            if (to != 0 && place != passedPlace && from[size_t(to)] == 0) {
                from[size_t(to)] = row;
                order.push_back(to);
            }
        }
    }
}

void HeapPathTree::markWays(const HeapClassSet& wanted) {
    for (int row = 1; row <= model.lastRowWithId; row++) {
        if (!wanted.hasObject(row)) {
            continue;
        }
        all++;
        withAll += session.isReached(row);
        found += from[size_t(row)] != 0;
        for (int at = row; from[size_t(at)] != 0 && !isOnWay[size_t(at)]; at = from[size_t(at)]) {
            isOnWay[size_t(at)] = true;
        }
    }
}

void HeapPathTree::merge(const HeapClassSet& wanted) {
    for (int row : order) {
        if (!isOnWay[size_t(row)]) {
            continue;
        }
        HeapPathStep& each = list[size_t(stepOf(row))];
        each.objects++;
        if (wanted.hasObject(row)) {
            each.count++;
            each.shallow += std::max<int64_t>(session.sizeOf(row), 0);
        }
    }
    for (size_t i = list.size(); i-- > 0;) {
        if (list[i].above >= 0) {
            list[size_t(list[i].above)].count += list[i].count;
            list[size_t(list[i].above)].shallow += list[i].shallow;
        }
    }
}

int HeapPathTree::stepOf(int row) {
    const int before = from[size_t(row)];
    const int asClass = model.classByRow(row);
    const int type = asClass >= 0 ? -2 - asClass : model.classOf(row);
    Key key;
    HeapPathStep fresh = {-1, nullptr, 0, row};
    if (before == row) {
        fresh.root = rootOf[row];
        key = {-1 - int(fresh.root->kind), type, fresh.root->thread + 1};
    } else {
        const bool isLink = asClass < 0 && !model.isClass(before) && type == model.classOf(before);
        fresh.above = step[size_t(before)];
        fresh.from = before;
        HeapPathStep& above = list[size_t(fresh.above)];
        if (isLink && above.isChain) {
            return step[size_t(row)] = fresh.above;
        }
        fresh.isChain = isLink;
        key = {fresh.above, type, isLink ? OwnClass : placeOf(before, row)};
    }
    const auto [known, isNew] = indexOf.try_emplace(key, int(list.size()));
    if (isNew) {
        list.push_back(fresh);
    }
    return step[size_t(row)] = known->second;
}

int HeapPathTree::placeOf(int before, int row) const {
    const ObjectStorage& storage = session.storage();
    if (storage.getArrayLength(before) >= 0) {
        return AnyElement;
    }
    int place = 0;
    while (place + 1 < storage.getRefCount(before) && storage.getRef(before, place) != row) {
        place++;
    }
    return place;
}

} // namespace vdk
