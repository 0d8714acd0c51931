// Commands as tools for assistants: which of them, and with which of their options. What a tool
// takes and answers follows from the table of commands.
#pragma once

#include "client/commands/Command.h"
#include "client/heap/shell/HeapQuestions.h"

#include <memory>
#include <optional>
#include <rapidjson/document.h>
#include <string>
#include <vector>

namespace vdk {

struct McpTool {
    const char* name;
    const char* command;
    std::vector<std::string> options; // and positionals, of the command
    bool controls;                    // changes what an agent does, or writes a file
};

const std::vector<McpTool>& mcpTools();

// "min_percent" for "--min-percent", "target" for "TARGET".
std::string argumentName(const OptionSpec& option);
// Of a tool's command, in the order of its row.
std::vector<OptionSpec> argumentsOf(const McpTool& tool);

// Arguments that a tool does not take; the text tells which.
struct BadArguments {
    std::string text;
};

struct ToolAnswer {
    bool failed = false;
    std::string document; // JSON without blanks
};

class McpToolbox {
public:
    // The longest answer; what is longer has to be asked for in parts.
    static constexpr size_t MostBytes = 1 << 20;

    explicit McpToolbox(bool allowControl) : allowControl(allowControl) {}

    // Those that may be called.
    std::vector<const McpTool*> offered() const;
    // Null for none, or for one that may not be called.
    const McpTool* find(const std::string& name) const;
    // Throws BadArguments. `arguments` is an object.
    ToolAnswer call(const McpTool& tool, const rapidjson::Value& arguments);

private:
    int askHeap(const std::vector<std::string>& words, const std::string& file, Console& console);

    const bool allowControl;
    // The heap that was asked about last stays open.
    std::string heapFile;
    std::unique_ptr<HeapQuestions> heap;
};

} // namespace vdk
