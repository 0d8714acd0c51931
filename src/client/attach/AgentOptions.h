// The agent's option string as `run` and `attach` build it: the user's options with the client's
// defaults in front.
#pragma once

#include <string>
#include <vector>

namespace vdk {

constexpr char BuiltInProbePackage[] = "com.vandrik.probes.builtin.";

struct AgentOptionChoices {
    bool attach = false;
    bool remote = false;       // add neither `onlylocal` nor `onlyuser`
    bool allUsers = false;     // do not add `onlyuser`
    bool exceptions = false;   // keep exception events
    bool locals = false;       // keep names of local variables
    bool generations = false;  // tag the heap's objects at the start
    bool verbose = false;      // let the agent write its banner
    bool requireAgent = false; // a program whose agent cannot start ends
    bool oomDump = false;      // let the agent switch on the JVM's heap dumps at OutOfMemoryError
    bool noRedact = false;     // let probes record values in SQL and URLs
    bool eager = false;        // calls go into classes as these load
    bool noSnapshot = false;   // leave no snapshot behind at the end
    bool tellSnapshot = true;  // say where it is
    std::string exitSnapshot;  // file of the snapshot at the end; "" is the usual place
    std::string tmpDir;        // private folder, as the target sees it; "" adds none
    std::vector<std::string> only; // class patterns; tracing rewrites no other class
    std::string probes;     // of the agent's own: "all", or short names with commas; "" is none
    std::string workingDir; // base of relative paths in the user's options
};

// `arguments` are the user's option strings, each one or more options separated by commas. An
// option of the user's replaces the default that it contradicts. Throws ClientError (Usage) for an
// empty option name such as "=5".
std::string composeAgentOptions(const std::vector<std::string>& arguments,
                                const AgentOptionChoices& choices);

// The value of an option among the user's, decoded; "" if it was not given. `key` ends in "=".
std::string givenOption(const std::vector<std::string>& arguments, const std::string& key);

// Throws ClientError (Usage, "agent.options") if the agent would not accept the user's options, and
// at a start "input.open" for a file they name that cannot be read; Refused "triggers.text" for bad
// triggers. Files of an attach are the target's and are not looked at.
// eager: the client does not add `ondemand`.
void checkAgentOptions(const std::vector<std::string>& arguments, bool attach, bool eager);

// The value in a form that survives the splitting at commas: as it is where possible, else
// "VDKQUOTED" and the bytes in hexadecimal.
std::string quoteOptionValue(const std::string& value);

// What a non-zero result of the agent's start means, and what to do about it.
struct AgentStartFailure {
    std::string message;
    std::string hint;
};
AgentStartFailure explainAgentResult(int code);

} // namespace vdk
