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

// The manual page, in roff; `vdk help --man` prints it and docs/vdk.1 is it.
std::string manualPage();

// Parts of the help and of the manual page: "vdk attach TARGET [OPTION...] [options]", "-o, --out
// FILE", and the meaning of each exit code.
std::string usageLine(const Command& command);
std::string optionHead(const OptionSpec& option);
const std::vector<std::pair<int, std::string>>& exitCodeTexts();

} // namespace vdk
