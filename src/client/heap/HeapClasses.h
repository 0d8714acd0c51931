// Sums over the objects of each class.
#pragma once

#include "client/heap/HeapSession.h"

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

namespace vdk {

struct HeapClassSum {
    int classIndex = -1; // in HeapModel::classes; -1 for rows without a class
    std::string name;
    int64_t count = 0;
    int64_t shallow = 0;
    int64_t retained = 0;
};

// One sum for each class that has objects. With `retained` the sum is of what the class's objects
// retain together as far as single objects do: the retained sizes of those that no object of the
// same class dominates.
std::vector<HeapClassSum> sumByClass(const HeapSession& session, bool retained);

// The same for groups of another kind, without names and one for each group.
std::vector<HeapClassSum> sumByGroup(const HeapSession& session, size_t groups,
                                     const std::function<int(int row)>& groupOf, bool retained);

// The same for the given rows alone; retained sizes are those of the rows, added up.
std::vector<HeapClassSum> sumRowsByClass(const HeapSession& session, const std::vector<int>& rows);

struct HeapTotals {
    int64_t count = 0;
    int64_t shallow = 0;
    int64_t unreachable = 0;
    int64_t unreachableBytes = 0;
};

// Of all classes, and of what no root reaches.
HeapTotals totalsOf(const HeapSession& session, const std::vector<HeapClassSum>& sums);

// The rows that roots reach of most retained bytes, in falling order.
std::vector<int> biggestObjects(const HeapSession& session, size_t top);

} // namespace vdk
