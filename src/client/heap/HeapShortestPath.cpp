// Shortest paths from the roots, with the referrers of each object or without.
#include "client/heap/HeapPathSearch.h"
#include "client/heap/HeapReferenceKinds.h"

#include <algorithm>

namespace vdk {

namespace {

// Of several shortest paths the one is taken on which, from the target back, each object is the one
// of the lowest row: both searches keep to that, so that a heap with an index and one without
// answer alike.
class PathSearch {
public:
    PathSearch(const HeapSession& session, bool alsoWeak)
        : session(session), storage(session.storage()), weak(session.model()), alsoWeak(alsoWeak) {}

protected:
    bool isRoot(int row) const {
        const std::vector<int>& roots = session.rootRows();
        return std::binary_search(roots.begin(), roots.end(), row);
    }
    // Calls visit(target) for what the row refers to, nothing included, until it returns false.
    template <typename Visit>
    void eachReference(int row, Visit&& visit) const {
        const int passed = alsoWeak ? -1 : weak.passedPlace(row);
        BigIntArrayIterator64 list = storage.getReferences().initReferenceIterator(row);
        for (int place = 0; list.hasNext(); place++) {
            const int target = list.next();
            if (place != passed && !visit(target)) {
                return;
            }
        }
    }

    const HeapSession& session;
    const ObjectStorage& storage;
    const HeapReferenceKinds weak;
    const bool alsoWeak;
};

// Breadth-first against the references, as far as the first level with roots.
class BackwardSearch : PathSearch {
public:
    BackwardSearch(const HeapSession& session, bool alsoWeak)
        : PathSearch(session, alsoWeak), referrers(session.referrers()) {}

    std::vector<int> find(int target) {
        rows.set(0, target);
        distances.set(target, 1);
        levels = {0, 1};
        while (!markRoots()) {
            if (!addLevel()) {
                return {};
            }
        }
        markTowardTarget();
        std::vector<int> path(1, target);
        for (int level = 1; level < int(levels.size()) - 1; level++) {
            path.push_back(lowestReferrer(path.back(), level));
        }
        std::reverse(path.begin(), path.end());
        return path;
    }

private:
    // The marks are distances below 0: of rows on a shortest path.
    bool markRoots() {
        bool found = false;
        for (int i = levels[levels.size() - 2]; i < levels.back(); i++) {
            const int row = rows.get(i);
            if (isRoot(row)) {
                distances.set(row, -distances.get(row));
                found = true;
            }
        }
        return found;
    }
    bool addLevel() {
        const auto distance = int(levels.size());
        int end = levels.back();
        for (int i = levels[levels.size() - 2]; i < levels.back(); i++) {
            const int row = rows.get(i);
            BigIntArrayIterator64 list = referrers.initReferenceIterator(row);
            while (list.hasNext()) {
                const int source = list.next();
                if (distances.get(source) == 0 && (alsoWeak || !weak.holdsWeakly(source, row))) {
                    distances.set(source, distance);
                    rows.set(end++, source);
                }
            }
        }
        levels.push_back(end);
        return levels[levels.size() - 2] < end;
    }
    void markTowardTarget() {
        for (size_t level = levels.size() - 2; level > 0; level--) {
            for (int i = levels[level]; i < levels[level + 1]; i++) {
                if (distances.get(rows.get(i)) > 0) {
                    continue;
                }
                eachReference(rows.get(i), [&](int target) {
                    if (target != 0 && distances.get(target) == int(level)) {
                        distances.set(target, -int(level));
                    }
                    return true;
                });
            }
        }
    }
    int lowestReferrer(int row, int level) const {
        int lowest = 0;
        BigIntArrayIterator64 list = referrers.initReferenceIterator(row);
        while (list.hasNext()) {
            const int source = list.next();
            if (distances.get(source) == -(level + 1) && (lowest == 0 || source < lowest) &&
                (alsoWeak || !weak.holdsWeakly(source, row))) {
                lowest = source;
            }
        }
        return lowest;
    }

    const RefTable& referrers;
    BigIntArray64 distances{"path distances"}; // plus one, 0 for a row not met
    BigIntArray64 rows{"path rows"};           // level by level
    std::vector<int> levels;                   // where each begins, and the end
};

// Breadth-first along the references, from one dominator of the target to the next: no path leads
// around them, and what lies between two is dominated by the upper one.
class ForwardSearch : PathSearch {
public:
    ForwardSearch(const HeapSession& session, bool alsoWeak) : PathSearch(session, alsoWeak) {}

    std::vector<int> find(int target) {
        std::vector<int> stations;
        HeapSession::WayToRoots way(session);
        for (int row = target; row != 0; row = way.above(row)) {
            stations.push_back(row);
        }
        std::vector<int> path;
        for (int from = 0; !stations.empty(); stations.pop_back()) {
            if (!addStretch(from, stations.back(), path)) {
                return {};
            }
            from = stations.back();
        }
        return path;
    }

private:
    // Adds what lies between two stations, 0 being all roots, and the second.
    bool addStretch(int from, int to, std::vector<int>& path) {
        if (from != 0 && refersTo(from, to)) {
            path.push_back(to);
            return true;
        }
        meet(from);
        for (size_t begin = 0, end = met.size(); finders.get(to) == 0 && begin < end;
             begin = end, end = met.size()) {
            for (size_t i = begin; i < end && finders.get(to) == 0; i++) {
                const int row = met[i];
                eachReference(row, [&](int target) {
                    if (target != 0 && finders.get(target) == 0 && isBelow(from, target)) {
                        finders.set(target, row + 1);
                        met.push_back(target);
                    }
                    return finders.get(to) == 0;
                });
            }
            std::sort(met.begin() + std::ptrdiff_t(end), met.end());
        }
        const bool isFound = finders.get(to) != 0;
        const size_t length = path.size();
        for (int row = to; isFound && row != 0 && row != from; row = finders.get(row) - 1) {
            path.push_back(row);
        }
        std::reverse(path.begin() + std::ptrdiff_t(length), path.end());
        for (int row : met) {
            finders.set(row, 0);
        }
        met.clear();
        return isFound;
    }
    void meet(int from) {
        met.assign(1, from);
        if (from == 0) {
            met = session.rootRows();
        }
        for (int row : met) {
            finders.set(row, 1);
        }
    }
    bool refersTo(int from, int to) const {
        bool found = false;
        eachReference(from, [&](int target) {
            found = target == to;
            return !found;
        });
        return found;
    }
    // A row met from rows below `from` is below it only if its dominator was met too.
    bool isBelow(int from, int row) const {
        const int dominator = storage.getDominator(row);
        return from == 0 || (dominator != 0 && finders.get(dominator) != 0);
    }

    BigIntArray64 finders{"path finders"}; // by row: who met it, plus one; 0 for a row not met
    std::vector<int> met;                  // level by level, each ascending
};

} // namespace

std::vector<int> shortestPath(const HeapSession& session, int target, bool alsoWeak) {
    const bool hasDominators = !session.reachedBits().empty();
    if (session.storage().getBackwardReferences() != nullptr || !hasDominators) {
        return BackwardSearch(session, alsoWeak).find(target);
    }
    return session.isReached(target) ? ForwardSearch(session, alsoWeak).find(target)
                                     : std::vector<int>();
}

} // namespace vdk
