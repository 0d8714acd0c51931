// The rows of the one table of commands, in the order of the help: a command has a row in the table
// of its group, and its run function in Commands.h; help, shell completion and checks follow from
// the row. docs/vdk.1 is printed from these tables, which a test checks.
#pragma once

#include "client/commands/Command.h"

namespace vdk {

const std::vector<Command>& jvmCommands();
const std::vector<Command>& recordingCommands();
const std::vector<Command>& reportCommands();
const std::vector<Command>& probeCommands();
const std::vector<Command>& heapCommands();
const std::vector<Command>& fleetCommands();

// For several of them.
inline const OptionSpec Source = {
    "SOURCE", ValueKind::Source, "a snapshot file, or a JVM with the agent", {}, true, false, ""};
inline const OptionSpec Target = {"TARGET", ValueKind::Target, "the JVM", {}, true, false, ""};

} // namespace vdk
