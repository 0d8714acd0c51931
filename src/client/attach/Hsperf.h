// The JVM's own performance data file (hsperfdata_<user>/<pid>): a mapped file of named values that
// every HotSpot JVM keeps unless it was started with -XX:-UsePerfData.
#pragma once

#include <map>
#include <optional>
#include <string>
#include <string_view>

namespace vdk {

// The text values of the file by name, for example "sun.rt.javaCommand". Nothing if the bytes are
// not such a file; entries that do not fit the file are left out.
std::optional<std::map<std::string, std::string>> parseHsperf(std::string_view bytes);

} // namespace vdk
