// The picture as a processed profile of the Firefox Profiler: each thing that was recorded is a
// process, whose threads are those that it was recorded of. Rows of probes are markers, telemetry
// is counters.
#pragma once

#include "client/picture/Picture.h"

#include <ostream>

namespace vdk {

// A picture that tells each thread. Sums have no order in time: each node of a thread's tree with
// something of its own is one sample with that as its weight, and samples stand one behind the
// other. Stacks and markers take about `mostBytes` each: what is put together or left out for that
// is told in the profile's words about itself.
constexpr size_t MostFirefoxBytes = 7 << 20;
void writeFirefoxProfile(std::ostream& out, const Picture& picture, DB& db, int64_t timeMs,
                         size_t mostBytes = MostFirefoxBytes);

} // namespace vdk
