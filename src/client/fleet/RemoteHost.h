// The `vdk` of another machine in place of this one's, over ssh: who may log in there, and how, is
// ssh's business.
#pragma once

#include "client/console/Console.h"

#include <string>
#include <vector>

namespace vdk {

struct RemoteCall {
    std::string host;               // "user@machine", or a name of ssh's configuration
    std::vector<std::string> words; // of the command line, without those that name the host
    bool copies = false;            // bring the program there first, unless it is there already
    bool needsTerminal = false;
};

// The words of a command line without --host, its value, and --copy-vdk; what stands behind `--` is
// a program's.
std::vector<std::string> withoutHost(const std::vector<std::string>& words);

// What ssh is started with.
std::vector<std::string> remoteCommand(const RemoteCall& call, const std::string& program);

// Becomes ssh, whose exit code is that of the other side's `vdk`, or 255 where ssh itself failed.
// Throws ClientError Usage for a name that is no host's, CannotRun "host.ssh", "host.copy".
[[noreturn]] void runOnHost(Console& console, const RemoteCall& call);

} // namespace vdk
