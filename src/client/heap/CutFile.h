// A heap file that another process cuts while it is mapped: the pages are gone, and touching one is
// SIGBUS.
#pragma once

namespace vdk {

// From now on such a touch ends the program with a line on standard error and ExitCode::BadInput.
// Any other SIGBUS does what it did before. May be called again.
void endAtCutFiles();

} // namespace vdk
