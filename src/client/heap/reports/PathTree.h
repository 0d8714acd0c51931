// The shortest paths from roots to many objects, merged: objects that the same field of the same
// class leads to are one step.
#pragma once

#include "client/heap/HeapFields.h"
#include "client/heap/HeapReferenceKinds.h"

#include <map>
#include <tuple>
#include <vector>

namespace vdk {

struct HeapPathStep {
    int above;            // index of the step before, -1 for one at a root
    const HeapRoot* root; // of the first object at a root, else null
    int from;             // the row that leads to the first object, 0 at a root
    int row;              // the first object
    bool isChain = false; // with further objects of the class behind one another
    int64_t objects = 0;  // on paths here
    int64_t count = 0;    // objects looked for, here and behind
    int64_t shallow = 0;  // their bytes
};

class HeapPathTree {
public:
    // Of all objects of the classes; references of the kinds are passed over.
    HeapPathTree(const HeapSession& session, const HeapClassSet& wanted,
                 const HeapReferenceKinds& kinds);

    const std::vector<HeapPathStep>& steps() const { return list; } // those before come first
    int64_t total() const { return all; }
    // That roots reach at all, and without references of the kinds.
    int64_t reached() const { return withAll; }
    int64_t merged() const { return found; }

private:
    // Step before (or what kind of root), class or class object, field.
    using Key = std::tuple<int, int, int>;

    void search(const HeapReferenceKinds& kinds);
    void markWays(const HeapClassSet& wanted);
    void merge(const HeapClassSet& wanted);
    int stepOf(int row);
    int placeOf(int from, int row) const;

    const HeapSession& session;
    const HeapModel& model;
    std::map<int, const HeapRoot*> rootOf; // by row
    std::vector<int> from;                 // by row: what leads to it, itself at a root, 0 if unmet
    std::vector<int> order;                // rows as they were met
    std::vector<bool> isOnWay;
    std::vector<int> step; // by row
    std::map<Key, int> indexOf;
    std::vector<HeapPathStep> list;
    int64_t all = 0, withAll = 0, found = 0;
};

} // namespace vdk
