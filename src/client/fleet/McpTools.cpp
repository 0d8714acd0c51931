#include "client/fleet/McpTools.h"

#include "client/commands/CommandLine.h"
#include "client/console/Text.h"

#include <algorithm>
#include <cctype>
#include <sstream>
#include <sys/stat.h>

namespace vdk {

namespace {

constexpr const char* HeapCommandName = "heap";
// Reports on heaps that write files, or are no question.
const char* const NotOffered[] = {"export", "shell", "server"};

std::string identityOf(const std::string& path) {
    struct stat info;
    if (stat(path.c_str(), &info) != 0) {
        return path;
    }
    return path + ":" + std::to_string(info.st_ino) + ":" + std::to_string(info.st_size) + ":" +
           std::to_string(info.st_mtim.tv_sec) + "." + std::to_string(info.st_mtim.tv_nsec);
}

// One value as a text of the command line.
std::string valueText(const OptionSpec& option, const rapidjson::Value& value) {
    const std::string name = argumentName(option);
    if (option.kind == ValueKind::Number) {
        if (!value.IsInt() || value.GetInt() < 0) {
            throw BadArguments{name + " is a whole number, 0 or more"};
        }
        return std::to_string(value.GetInt());
    }
    if (!value.IsString()) {
        throw BadArguments{name + " is a text"};
    }
    const std::string text(value.GetString(), value.GetStringLength());
    if (text.find('\0') != std::string::npos) {
        throw BadArguments{name + " has a null character"};
    }
    if (option.isPositional() && (text.empty() || text[0] == '-')) {
        throw BadArguments{name + " is empty or begins with a hyphen"};
    }
    const bool namesFile = option.kind == ValueKind::File || option.kind == ValueKind::Source;
    struct stat info;
    if (namesFile && stat(text.c_str(), &info) == 0 && !S_ISREG(info.st_mode)) {
        throw BadArguments{name + " is a folder, pipe or device, no file"}; // one may never end
    }
    if (!option.choices.empty() &&
        std::find(option.choices.begin(), option.choices.end(), text) == option.choices.end()) {
        throw BadArguments{name + " is one of " + join(option.choices, ", ")};
    }
    return text;
}

void addValue(std::vector<std::string>& words, const OptionSpec& option,
              const rapidjson::Value& value) {
    if (option.kind == ValueKind::None) {
        if (!value.IsBool()) {
            throw BadArguments{argumentName(option) + " is true or false"};
        }
        if (value.GetBool()) {
            words.push_back(option.name);
        }
        return;
    }
    const std::string text = valueText(option, value);
    words.push_back(option.isPositional() ? text : option.name + "=" + text);
}

// The words behind the command's name.
std::vector<std::string> wordsOf(const McpTool& tool, const rapidjson::Value& arguments) {
    const std::vector<OptionSpec> options = argumentsOf(tool);
    for (const auto& member : arguments.GetObject()) {
        const std::string given = member.name.GetString();
        if (std::none_of(options.begin(), options.end(),
                         [&](const OptionSpec& option) { return argumentName(option) == given; })) {
            throw BadArguments{std::string(tool.name) + " takes no argument '" +
                               printable(given, 60) + "'"};
        }
    }
    std::vector<std::string> words;
    for (const OptionSpec& option : options) {
        const std::string name = argumentName(option);
        const auto member = arguments.FindMember(name.c_str());
        if (member == arguments.MemberEnd()) {
            if (option.required) {
                throw BadArguments{name + " is needed"};
            }
            continue;
        }
        if (option.repeated && !member->value.IsArray()) {
            throw BadArguments{name + " is a list"};
        }
        if (!option.repeated) {
            addValue(words, option, member->value);
            continue;
        }
        for (const rapidjson::Value& value : member->value.GetArray()) {
            addValue(words, option, value);
        }
    }
    return words;
}

} // namespace

const std::vector<McpTool>& mcpTools() {
    static const std::vector<McpTool> tools = {
        {"list_jvms", "list", {"--profiled"}, false},
        {"doctor", "doctor", {"TARGET"}, false},
        {"status", "status", {"TARGET"}, false},
        {"report",
         "report",
         {"SOURCE", "--show", "--by", "--callers", "--thread", "--include", "--exclude", "--focus",
          "--top", "--min-percent", "--depth"},
         false},
        {"threads", "threads", {"SOURCE"}, false},
        {"thread_dump", "dump", {"TARGET"}, false},
        {"telemetry", "telemetry", {"SOURCE", "--last"}, false},
        {"sql", "sql", {"SOURCE", "--top"}, false},
        {"requests", "requests", {"SOURCE", "--top"}, false},
        {"diff", "diff", {"A", "B", "--per", "--top"}, false},
        {"heap",
         HeapCommandName,
         {"FILE", "REPORT", "ARGUMENT", "--top", "--sort", "--where", "--subclasses", "--from",
          "--skip", "--by-class", "--since", "--held-by", "--by", "--weak"},
         false},
        {"attach", "attach", {"TARGET"}, true},
        {"record",
         "record",
         {"TARGET", "--for", "--out", "--sample", "--wall", "--trace", "--alloc", "--locks",
          "--exceptions"},
         true},
        {"sample", "sample", {"ACTION", "TARGET"}, true},
        {"monitors", "monitors", {"ACTION", "TARGET"}, true},
        {"heap_capture", "heap capture", {"TARGET", "--out"}, true},
    };
    return tools;
}

std::string argumentName(const OptionSpec& option) {
    std::string name =
        option.name.substr(std::min(option.name.find_first_not_of('-'), option.name.size()));
    std::transform(name.begin(), name.end(), name.begin(),
                   [](unsigned char c) { return c == '-' ? '_' : char(std::tolower(c)); });
    return name;
}

std::vector<OptionSpec> argumentsOf(const McpTool& tool) {
    const Command* command = findCommand(tool.command);
    std::vector<OptionSpec> options;
    for (const std::string& name : tool.options) {
        for (const OptionSpec& option : command->options) {
            if (option.name == name) {
                options.push_back(option);
            }
        }
    }
    for (OptionSpec& option : options) {
        for (const char* name : NotOffered) {
            if (option.name == "REPORT") {
                option.choices.erase(
                    std::remove(option.choices.begin(), option.choices.end(), name),
                    option.choices.end());
            }
        }
    }
    return options;
}

std::vector<const McpTool*> McpToolbox::offered() const {
    std::vector<const McpTool*> tools;
    for (const McpTool& tool : mcpTools()) {
        if (allowControl || !tool.controls) {
            tools.push_back(&tool);
        }
    }
    return tools;
}

const McpTool* McpToolbox::find(const std::string& name) const {
    for (const McpTool* tool : offered()) {
        if (tool->name == name) {
            return tool;
        }
    }
    return nullptr;
}

int McpToolbox::askHeap(const std::vector<std::string>& words, const std::string& file,
                        Console& console) {
    const std::string identity = identityOf(file);
    if (!heap || heapFile != identity) {
        heap.reset(); // one is large enough
        Arguments arguments;
        arguments.values["FILE"] = {file};
        try {
            heap = std::make_unique<HeapQuestions>(console, arguments);
        } catch (const ClientError& problem) {
            console.error(problem);
            return int(problem.code);
        }
        heapFile = identity;
    }
    return heap->ask(words, console);
}

ToolAnswer McpToolbox::call(const McpTool& tool, const rapidjson::Value& arguments) {
    std::vector<std::string> words = wordsOf(tool, arguments);
    words.emplace_back("--json");
    std::ostringstream out, err;
    Console console(out, err, false, false);
    console.json = true;
    int code = 0;
    if (tool.command == std::string(HeapCommandName)) {
        const std::string file = words.front();
        words.erase(words.begin());
        code = askHeap(words, file, console);
    } else {
        const std::vector<std::string> names = split(tool.command, ' ');
        words.insert(words.begin(), names.begin(), names.end());
        code = runClient(words, console);
    }
    ToolAnswer answer;
    answer.failed = code != 0;
    answer.document = compactJson(answer.failed && !err.str().empty() ? err.str() : out.str());
    if (answer.document.size() > MostBytes) {
        std::ostringstream text;
        JsonWriter json(text, false);
        json.beginObject().field("word", "mcp.large");
        json.field("message", "the answer has " + formatBytes(int64_t(answer.document.size())));
        json.field("hint", "ask for less: top, depth, thread, include, one show").endObject();
        answer = {true, text.str()};
    }
    return answer;
}

} // namespace vdk
