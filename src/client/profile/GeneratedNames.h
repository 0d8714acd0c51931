// Names of classes that the JVM and its libraries generate.
#pragma once

#include "client/profile/Profile.h"

#include <string>

namespace vdk {

// The name with the running numbers of generated classes taken out, so that equal code of two runs
// has equal names: "Main$$Lambda+0x00007f/12.run" becomes "Main$$Lambda.run".
std::string cleanFrameName(const std::string& name);

// Cleans the class names of a profile. Methods that have one name then are one method.
void mergeGeneratedNames(Profile& profile);

} // namespace vdk
