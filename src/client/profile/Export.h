// The profile in the forms of other tools.
#pragma once

#include "client/profile/CallTree.h"

#include <ostream>
#include <string>

namespace vdk {

struct ExportChoices {
    bool filters = false;
    bool byThread = false; // collapsed: the thread as outermost frame
    bool signatures = false;
    bool rawNames = false;
    int64_t unitNs = 1000; // collapsed: what a count of one means
    std::string name;      // speedscope: of the whole file
};

// Collapsed stacks: one line a stack, frames from the outermost on separated by ";", one blank, own
// time in whole units, rounded. Stacks that round to 0 are left out.
void writeCollapsed(std::ostream& out, const Profile& profile, const ExportChoices& choices);

// speedscope's file format: a "sampled" profile a thread, a sample for each stack with time of its
// own, weighted in nanoseconds.
void writeSpeedscope(std::ostream& out, const Profile& profile, const ExportChoices& choices);

} // namespace vdk
