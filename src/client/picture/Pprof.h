// The picture as a profile.proto in gzip, which pprof and the stores of profiles read.
#pragma once

#include "client/picture/Picture.h"

#include <ostream>
#include <string>
#include <vector>

namespace vdk {

// What a tree adds up, and behind that its counts where it has any: by the names that stores know.
struct SampleValue {
    std::string type, unit;
};
std::vector<SampleValue> valuesOf(const StackTree& tree);

// Each tree gives one or two of the values that every sample has: what it adds up, and its counts.
// Threads are labels.
void writePprof(std::ostream& out, const Picture& picture, int64_t timeMs);

} // namespace vdk
