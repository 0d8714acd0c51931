// The picture as an SVG: a flame graph that stands still, for documents. The same data gives the
// same bytes.
#pragma once

#include "client/picture/Picture.h"

#include <ostream>

namespace vdk {

struct SvgLimits {
    int depth = 60;          // levels that are drawn
    double minPercent = 0.1; // frames of a smaller part of the whole are left out
};

// One below the other for each thing that was recorded, the outermost frames on top.
void writeSvg(std::ostream& out, const Picture& picture, const SvgLimits& limits);

} // namespace vdk
