// What a command is: one row of the tables in tables/. The command line, the help, the shell
// completion and the list in the man page all follow from these rows.
#pragma once

#include "client/console/Console.h"

#include <map>
#include <optional>
#include <string>
#include <vector>

namespace vdk {

// What a value is, for completion and checks.
enum class ValueKind {
    None, // a flag
    Text,
    Number,   // 0 or more
    Duration, // "30s", see parseDurationMs
    Size,     // "512k", see parseSize
    File,
    Folder,
    Target,      // a JVM
    Source,      // a snapshot file or a JVM
    Choice,      // one of OptionSpec::choices
    TriggerLine, // a file, or a line of the trigger text
};

struct OptionSpec {
    std::string name; // "--out", or the name of a positional such as "TARGET"
    ValueKind kind = ValueKind::None;
    std::string help;
    std::vector<std::string> choices = {};
    bool required = false;
    bool repeated = false;      // a positional takes all that follow, an option may come again
    std::string shortName = {}; // "-o"
    // "--sampled" alone will do; a value behind a blank counts only with a unit.
    bool isValueOptional = false;

    bool isPositional() const { return name[0] != '-'; }
    bool needsValue() const { return kind != ValueKind::None && !isValueOptional; }
};

// The values of one command line.
class Arguments {
public:
    bool has(const std::string& name) const { return values.count(name) != 0; }
    std::string text(const std::string& name, const std::string& fallback = {}) const;
    // The value was checked when the command line was read.
    long number(const std::string& name, long fallback) const;
    long durationMs(const std::string& name, long fallback) const;
    int size(const std::string& name, int fallback) const;
    const std::vector<std::string>& all(const std::string& name) const;

    std::map<std::string, std::vector<std::string>> values;
    // What stands behind "--".
    std::vector<std::string> command;
};

struct Command {
    std::string name;
    std::string summary;  // one line
    std::string details;  // more, for --help; may be empty
    std::string examples; // lines, for --help
    std::vector<OptionSpec> options;
    bool takesProgram = false; // "-- program arguments"
    bool printsData = true;    // has --json
    int (*run)(Console& console, const Arguments& arguments);
};

// The table of all commands, in the order of the help. A name may have two words, "heap live", the
// first of which is a command as well.
const std::vector<Command>& commands();
const Command* findCommand(const std::string& name);

// Second words of such names.
std::vector<std::string> wordsBehind(const Command& command);

// Options that every command has.
const std::vector<OptionSpec>& commonOptions();

// All options of a command: its own and the common ones that it takes.
std::vector<OptionSpec> allOptions(const Command& command);

} // namespace vdk
