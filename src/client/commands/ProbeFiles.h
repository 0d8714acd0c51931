// Class files that a user names: a .class file, a folder of them, or a jar.
#pragma once

#include <string>
#include <vector>

namespace vdk {

// True for the name of a file or folder, as against that of a class.
bool namesProbeFile(const std::string& name);

// The class files in it, in the order of their names. Throws ClientError "input.open" if it cannot
// be read, BadInput "probe.jar" for a jar that is damaged or has no class.
std::vector<std::string> readProbeFile(const std::string& path);

} // namespace vdk
