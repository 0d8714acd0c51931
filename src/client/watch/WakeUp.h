// Lets one thread wait for another, with a limit: a pipe, as condition variables with a clock of
// their own are newer than the systems that this program runs on.
#pragma once

#include "client/console/Descriptor.h"

#include <chrono>

namespace vdk {

class WakeUp {
public:
    // Throws ClientError if the process has no descriptors left.
    WakeUp();

    void wake();
    // True once wake() was called; a signal ends the wait early. reset() forgets the calls.
    bool wait(std::chrono::milliseconds longest);
    void reset();

private:
    Descriptor readEnd, writeEnd;
};

} // namespace vdk
