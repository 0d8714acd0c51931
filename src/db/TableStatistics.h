#pragma once

#include "core/ground/ZString.h"

// bytes in megabytes, as "%6.1f".
ZString getMegaBytesString(long bytes);

// The line that every table reports about itself: name, live rows, capacity, megabytes. Deleted
// rows do not count as live.
ZString getTableStatistics(const char* name, int live, int capacity, long bytes);
