// The JVM's own performance data file (hsperfdata_<user>/<pid>): a mapped file of named values that
// every HotSpot JVM keeps unless it was started with -XX:-UsePerfData.
#pragma once

#include "client/attach/ProcFs.h"

#include <map>
#include <optional>
#include <string>
#include <string_view>

namespace vdk {

// The text values of the file by name, for example "sun.rt.javaCommand". Nothing if the bytes are
// not such a file; entries that do not fit the file are left out.
std::optional<std::map<std::string, std::string>> parseHsperf(std::string_view bytes);

struct PerformanceData {
    std::map<std::string, std::string> values;
    // What tells the file from others; 0 if there is none.
    unsigned long file = 0;
};

// The values of a process's own file. `user` is the name of its user as this process knows it; in a
// container the user may have another one, so there any folder that the user owns will do. Files
// that somebody else could have made are passed over, as the JVM does.
PerformanceData readHsperf(const ProcFs& processes, const ProcessStatus& process,
                           const std::string& user);

} // namespace vdk
