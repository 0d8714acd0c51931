// How long was recorded, as a property of the data: comparisons go by it.
#pragma once

#include <cstdint>

class DB;

namespace vdk {

void noteRecordedTime(DB& db, int64_t milliseconds);
// 0 where it is not known.
int64_t recordedTimeMs(DB& db);

} // namespace vdk
