// The Model Context Protocol on a pair of streams: a message of JSON-RPC 2.0 a line.
#pragma once

#include "client/fleet/McpTools.h"

#include <optional>
#include <rapidjson/fwd.h>
#include <string>

namespace vdk {

class McpServer {
public:
    // Longest line; what is longer is passed over up to its end.
    static constexpr size_t MostLine = 1 << 20;

    explicit McpServer(bool allowControl) : toolbox(allowControl) {}

    // Reads lines from the descriptor until its end, SIGINT or SIGTERM, and writes answers.
    void serve(int input, std::ostream& out);
    // The answer to one line; nothing where none is due.
    std::optional<std::string> answerTo(const std::string& line);

private:
    std::optional<std::string> answerOne(const rapidjson::Value& message);
    // The result of a request; throws RpcError.
    std::string resultOf(const std::string& method, const rapidjson::Value& parameters);
    std::string initialize(const rapidjson::Value& parameters);
    std::string listTools() const;
    std::string callTool(const rapidjson::Value& parameters);

    McpToolbox toolbox;
    bool isInitialized = false;
};

} // namespace vdk
