// The options that choose stacks: --thread, --include, --exclude, --focus.
#pragma once

#include "client/commands/Command.h"
#include "client/profile/Selection.h"

namespace vdk {

Selection selectionOf(const Arguments& arguments);
// Tells each pattern that matches nothing, once.
void noteUnmatched(Console& console, const std::vector<std::string>& patterns);
// Takes from a profile what is not chosen.
void select(Profile& profile, const Selection& selection);

} // namespace vdk
