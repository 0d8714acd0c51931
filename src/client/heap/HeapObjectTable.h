// Tables of single objects, and of the references between them.
#pragma once

#include "client/heap/HeapDocument.h"

#include <string>
#include <vector>

namespace vdk {

// Sizes and names of objects, and of those that a local variable holds thread and frame.
HeapTable heapObjectTable(const HeapSession& session, const std::vector<int>& rows);

// An object behind a reference of that name.
struct HeapLink {
    int row;
    std::string name;
};

HeapTable heapLinkTable(const HeapSession& session, const std::vector<HeapLink>& links);

} // namespace vdk
