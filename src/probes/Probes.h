#pragma once

#include "core/ground/ZString.h"

// Probes: where the classes of probes are looked up.
class Probes {
public:
    // The runtime archive first, then the elements of the class path options in their order. Filled
    // during the load, extended under ourLock, never destroyed.
    static ZVectorSafe<ZString>& ourProbeClassPathElements;
};
