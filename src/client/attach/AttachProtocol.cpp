#include "client/attach/AttachProtocol.h"

#include "client/console/Text.h"

#include <climits>

namespace vdk {

static void append(std::string& request, const std::string& field) {
    request += field;
    request += '\0';
}

std::string attachRequestV1(const std::string& command, const std::vector<std::string>& arguments) {
    std::string request;
    append(request, "1");
    append(request, command);
    for (size_t i = 0; i < 3; i++) {
        append(request, i < arguments.size() ? arguments[i] : std::string());
    }
    return request;
}

std::string attachRequestV2(const std::string& command, const std::vector<std::string>& arguments) {
    std::string body;
    append(body, command);
    for (const std::string& argument : arguments) {
        append(body, argument);
    }
    std::string request;
    append(request, "2");
    append(request, std::to_string(body.size()));
    return request + body;
}

AttachReply parseAttachReply(const std::string& bytes) {
    AttachReply reply;
    size_t end = bytes.find('\n');
    auto number = parseNumber(bytes.substr(0, end), INT_MIN, INT_MAX);
    if (!number) {
        return reply;
    }
    reply.complete = true;
    reply.result = static_cast<int>(*number);
    if (end != std::string::npos) {
        reply.text = bytes.substr(end + 1);
    }
    return reply;
}

int attachVersion(const AttachReply& reply) {
    if (!reply.complete || reply.result != 0) {
        return 1;
    }
    std::string line = reply.text.substr(0, reply.text.find_first_of(" \n"));
    auto version = parseNumber(line, 1, 1000);
    return version ? static_cast<int>(*version) : 1;
}

LoadOutcome parseLoadReply(const AttachReply& reply) {
    LoadOutcome outcome;
    if (!reply.complete) {
        outcome.message = "the JVM closed the connection without an answer";
        return outcome;
    }
    std::string line = reply.text.substr(0, reply.text.find('\n'));
    static const std::string prefix = "return code: ";
    std::string digits = startsWith(line, prefix) ? line.substr(prefix.size()) : line;
    if (auto code = parseNumber(digits, INT_MIN, INT_MAX)) {
        outcome.loaded = true;
        outcome.returnCode = static_cast<int>(*code);
        return outcome;
    }
    outcome.message = reply.text;
    while (!outcome.message.empty() && outcome.message.back() == '\n') {
        outcome.message.pop_back();
    }
    if (outcome.message.empty()) {
        outcome.message = "the JVM answered " + std::to_string(reply.result);
    }
    return outcome;
}

} // namespace vdk
