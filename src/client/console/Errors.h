// What the client can fail with: an exit code, a stable word for programs, a text for people.
#pragma once

#include <stdexcept>
#include <string>

namespace vdk {

// Exit codes of every command; documented in docs/client.md and the man page.
enum class ExitCode {
    Done = 0,
    Refused = 1,  // a check said no
    Usage = 2,    // wrong command line
    NoTarget = 3, // no such JVM, or several
    AttachRefused = 4,
    AgentFailed = 5, // the agent in the target answered with an error, or could not be reached
    TimedOut = 6,
    BadInput = 7, // damaged, truncated or foreign data, from a file or the socket
    CannotWrite = 8,
    CannotRun = 127, // `run` could not start the program
    Aborted = 130
};

// `word` is part of the interface (`--json` shows it); the message may change. `hint` says what to
// do and may be empty.
class ClientError : public std::runtime_error {
public:
    ClientError(ExitCode code, std::string word, const std::string& message, std::string hint = {})
        : std::runtime_error(message), code(code), word(std::move(word)), hint(std::move(hint)) {}

    const ExitCode code;
    const std::string word;
    const std::string hint;
};

} // namespace vdk
