// Reads a command line by the table of commands.
#pragma once

#include "client/commands/Command.h"

namespace vdk {

// Runs the program: what main() does, with the streams of the caller. The result is the exit code.
int runClient(const std::vector<std::string>& arguments, Console& console);

// Text of `vdk --help` and of a command's help; the long form has the examples in front.
std::string programHelp();
std::string commandHelp(const Command& command, bool longForm);
std::string versionText();

} // namespace vdk
