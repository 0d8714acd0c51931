// Files of other profilers: collapsed stacks, pprof, flight recordings.
#pragma once

#include "db/DB.h"

#include <istream>
#include <memory>
#include <string>

namespace vdk {

// The tables of such a file, by its name's end and first bytes; null for any other file. Throws
// ClientError BadInput "foreign.data" for one that is damaged or has no times or samples, and
// CannotRun "foreign.jfr" where no JDK is found to read a recording.
std::unique_ptr<DB> readForeignFile(const std::string& path);

// The first bytes of a file, inflated where it is in gzip form; fewer of a short or damaged one.
std::string headOf(const std::string& path);

// The parts of it, which need not look at names any more.

// "outer;inner 12" a line (FlameGraph's collapsed form).
std::unique_ptr<DB> readCollapsed(const std::string& path, std::istream& in);
// The uncompressed message of profile.proto.
std::unique_ptr<DB> readPprof(const std::string& path, const std::string& message);
// What `jfr print --json` of a JDK tells.
std::unique_ptr<DB> readFlightRecording(const std::string& path);

} // namespace vdk
