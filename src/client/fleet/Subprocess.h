// A program that is given its input and asked for its output, within a time limit.
#pragma once

#include <string>
#include <vector>

namespace vdk {

struct ProgramResult {
    int code = 127; // 128 and the signal's number for one that a signal ended
    std::string output, errors;
    bool timedOut = false;
};

// Runs the program, searched in PATH, with `input` on its standard input and `secret`, if there is
// any, on its descriptor 3. Output and errors are cut at `mostOutput` bytes each. Throws
// ClientError CannotRun "run.exec" where it cannot be started, Aborted at Ctrl-C.
ProgramResult runProgram(const std::vector<std::string>& command, const std::string& input,
                         const std::string& secret, int timeoutMs, size_t mostOutput = 1 << 16);

} // namespace vdk
