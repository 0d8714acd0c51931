// The class histogram that a running JVM prints, as data.
#pragma once

#include "client/heap/HeapClasses.h"

#include <string>
#include <vector>

namespace vdk {

// "   1:   1234   56789  [B (java.base@17.0.15)" becomes a row with the class's source name;
// classes of one name are added up. Lines of another form are left out.
std::vector<HeapClassSum> parseLiveHistogram(const std::string& text);

} // namespace vdk
