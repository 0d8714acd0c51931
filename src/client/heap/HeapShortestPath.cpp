#include "client/heap/HeapPathSearch.h"
#include "client/heap/HeapReferenceKinds.h"
#include "offline/ScratchColumn.h"

#include <algorithm>

namespace vdk {

namespace {

// Breadth-first along the references, from one dominator of the target to the next: no path leads
// around them, and what lies between two is dominated by the upper one. Of several shortest paths
// that one is found on which, from the target back, each object has the lowest row.
class PathSearch {
public:
    PathSearch(const HeapSession& session, bool alsoWeak)
        : session(session), storage(session.storage()), weak(session.model()), alsoWeak(alsoWeak),
          memory(session.model().rowCount() + 1L, false), finders(memory.get()) {}

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
    // Adds what lies between two stations, 0 being all roots, and the second.
    bool addStretch(int from, int to, std::vector<int>& path) {
        if (from != 0 && refersTo(from, to)) {
            path.push_back(to);
            return true;
        }
        meet(from);
        for (size_t begin = 0, end = met.size(); finders[to] == 0 && begin < end;
             begin = end, end = met.size()) {
            for (size_t i = begin; i < end && finders[to] == 0; i++) {
                const int row = met[i];
                eachReference(row, [&](int target) {
                    if (target != 0 && finders[target] == 0 && isBelow(from, target)) {
                        finders[target] = row + 1;
                        met.push_back(target);
                    }
                    return finders[to] == 0;
                });
            }
            std::sort(met.begin() + std::ptrdiff_t(end), met.end());
        }
        const bool isFound = finders[to] != 0;
        const size_t length = path.size();
        for (int row = to; isFound && row != 0 && row != from; row = finders[row] - 1) {
            path.push_back(row);
        }
        std::reverse(path.begin() + std::ptrdiff_t(length), path.end());
        for (int row : met) {
            finders[row] = 0;
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
            finders[row] = 1;
        }
    }
    // Asks the shorter list where there are two.
    bool refersTo(int from, int to) const {
        const RefTable* const referrers = storage.getBackwardReferences();
        bool found = false;
        if (referrers != nullptr && referrers->getCount(to) < storage.getRefCount(from)) {
            BigIntArrayIterator64 list = referrers->initReferenceIterator(to);
            while (list.hasNext() && !found) {
                found = list.next() == from;
            }
            return found && (alsoWeak || !weak.holdsWeakly(from, to));
        }
        eachReference(from, [&](int target) {
            found = target == to;
            return !found;
        });
        return found;
    }
    // A row met from rows below `from` is below it only if its dominator was met too.
    bool isBelow(int from, int row) const {
        const int dominator = storage.getDominator(row);
        return from == 0 || (dominator != 0 && finders[dominator] != 0);
    }

    const HeapSession& session;
    const ObjectStorage& storage;
    const HeapReferenceKinds weak;
    const bool alsoWeak;
    const ScratchColumn memory;
    int* const finders;   // by row: who met it, plus one; 0 for a row not met
    std::vector<int> met; // level by level, each ascending
};

} // namespace

std::vector<int> shortestPath(const HeapSession& session, int target, bool alsoWeak) {
    return session.isReached(target) ? PathSearch(session, alsoWeak).find(target)
                                     : std::vector<int>();
}

} // namespace vdk
