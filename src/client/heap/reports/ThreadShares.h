// What each thread alone keeps alive: itself and the local variables of its frames.
#pragma once

#include "client/heap/HeapSession.h"

#include <cstdint>
#include <vector>

namespace vdk {

struct HeapThreadShare {
    int64_t count = 0;
    int64_t bytes = 0;
};

// By thread of the model: what would go if the thread and its frames did. All threads in one walk:
// an object belongs to a thread if roots reach it through that thread's object or frames alone.
std::vector<HeapThreadShare> threadShares(const HeapSession& session);

} // namespace vdk
