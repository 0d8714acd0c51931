// Which objects only one of several owners leads to.
#pragma once

#include "client/heap/HeapReferenceKinds.h"
#include "client/heap/HeapSession.h"

#include <algorithm>
#include <vector>

namespace vdk {

class OwnerWalk {
public:
    static constexpr int Nobody = 0;
    static constexpr int Shared = -1;

    // References that `passed` names are not followed; null follows all.
    explicit OwnerWalk(const HeapSession& session, const HeapReferenceKinds* passed = nullptr)
        : session(session), passed(passed), owners(size_t(session.model().rowCount()) + 1, Nobody) {
    }

    // The object belongs to that owner, whoever leads to it.
    void fix(int row, int owner) {
        if (row > 0 && fixed.get(row) < 0) {
            fixed.put(row, owner);
        }
    }
    // An owner above 0, or Shared, leads to the object and on to all that it refers to.
    void reach(int row, int owner) {
        take(row, owner);
        while (!open.empty()) {
            const int from = open.back();
            open.pop_back();
            follow(from, owners[size_t(from)]);
        }
    }
    int ownerOf(int row) const { return owners[size_t(row)]; }

    // For each object of a single owner: that, and the object's own bytes.
    template <typename Visitor>
    void eachOwned(Visitor visitor) const {
        for (int row = 1; row <= session.model().rowCount(); row++) {
            if (owners[size_t(row)] > 0) {
                visitor(owners[size_t(row)], std::max<int64_t>(session.sizeOf(row), 0));
            }
        }
    }

private:
    // An owner changes twice at most: to one of them, and to all.
    void take(int row, int owner) {
        const int own = row == 0 ? -1 : fixed.get(row);
        owner = own >= 0 ? own : owner;
        int& known = owners[size_t(row)];
        if (row == 0 || known == owner || known == Shared) {
            return;
        }
        known = known == Nobody ? owner : Shared;
        open.push_back(row);
    }
    void follow(int from, int owner) {
        const int passedPlace = passed == nullptr ? -1 : passed->passedPlace(from);
        BigIntArrayIterator64 list = session.storage().getReferences().initReferenceIterator(from);
        for (int place = 0; list.hasNext(); place++) {
            const int to = list.next();
            if (place != passedPlace) {
                take(to, owner);
            }
        }
    }

    const HeapSession& session;
    const HeapReferenceKinds* const passed;
    RowTable fixed;
    std::vector<int> owners; // by row
    std::vector<int> open;
};

} // namespace vdk
