#pragma once

#include "client/heap/HeapSession.h"
#include "client/heap/sql/SqlTable.h"

#include <vector>

namespace vdk {

// The tables of an analyzed heap. Objects go by their row numbers in all of them, a class by that
// of its class object, so that `using (object)` and `using (class)` join them. The session must
// outlive them.
std::vector<SqlTable> heapSqlTables(const HeapSession& session);

} // namespace vdk
