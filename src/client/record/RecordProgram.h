// A program that is started to be recorded: its JVMs load the agent, record from their beginning,
// and leave a snapshot at their end.
#pragma once

#include "client/attach/AgentOptions.h"

#include <optional>
#include <string>
#include <sys/types.h>
#include <vector>

namespace vdk {

class RecordedProgram {
public:
    // `options` are the agent's, beside those that belong to this. Throws ClientError CannotRun
    // "run.exec" if it cannot be started.
    RecordedProgram(const std::vector<std::string>& command,
                    const std::vector<std::string>& options, AgentOptionChoices choices,
                    const std::string& agentLibrary);
    // Removes the snapshots. A program that still runs goes on.
    ~RecordedProgram();
    RecordedProgram(const RecordedProgram&) = delete;
    RecordedProgram& operator=(const RecordedProgram&) = delete;

    pid_t pid() const { return child; }
    // True once it has ended.
    bool hasEnded();
    // Whether it does within a moment: a JVM that ends closes its port first.
    bool endsSoon();
    // Until its end. Signals that ask this process to end are passed on; a second one ends it.
    void await();
    // As a shell tells it: 128 and the number of a signal.
    int exitCode() const { return code; }
    // Those that its JVMs have left, in the order of their ends.
    std::vector<std::string> snapshots() const;

private:
    std::string folder;
    pid_t child = -1;
    bool ended = false;
    int code = 0;
};

} // namespace vdk
