// Sums over the objects of each class.
#pragma once

#include "client/heap/HeapSession.h"

#include <cstdint>
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

// The same for the given rows alone; retained sizes are those of the rows, added up.
std::vector<HeapClassSum> sumRowsByClass(const HeapSession& session, const std::vector<int>& rows);

} // namespace vdk
