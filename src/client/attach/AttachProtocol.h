// The two forms of a request to a JVM's attach socket, and its answers.
#pragma once

#include <string>
#include <vector>

namespace vdk {

// Longest argument of a version 1 request, in bytes; a longer one is dropped without an answer.
constexpr size_t AttachV1MaxArgument = 1024;

// Version 1, every JVM: "1" NUL command NUL, and always three arguments, each NUL-ended.
std::string attachRequestV1(const std::string& command, const std::vector<std::string>& arguments);

// Version 2 (24 and later): "2" NUL, length of the rest as decimal text NUL, command NUL and the
// arguments, each NUL-ended.
std::string attachRequestV2(const std::string& command, const std::vector<std::string>& arguments);

struct AttachReply {
    bool complete = false; // a result line came at all
    int result = 0;
    std::string text; // what follows the result line
};
AttachReply parseAttachReply(const std::string& bytes);

// Version of the protocol by the answer to `getversion`; 1 for a JVM that does not know it.
int attachVersion(const AttachReply& reply);

// What became of a `load` request. The first number is no guide (0 for a missing file on new JVMs),
// the text decides.
struct LoadOutcome {
    bool loaded = false; // the library was opened and its entry ran
    int returnCode = 0;  // of the entry, when loaded
    std::string message; // the JVM's own text when not loaded
};
LoadOutcome parseLoadReply(const AttachReply& reply);

} // namespace vdk
