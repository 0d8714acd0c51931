// A file of the user's that is read as a whole.
#pragma once

#include <string>

namespace vdk {

// Throws ClientError Usage "input.open" for one that cannot be read, folders included.
std::string readWholeFile(const std::string& path);

} // namespace vdk
