#include "client/commands/CommandLine.h"

#include "client/console/Signals.h"
#include "client/console/Text.h"
#include "client/fleet/RemoteHost.h"
#include "core/ground/Logger.h"
#include "core/ground/Options.h"
#include "core/ground/Version.h"

#include <CLI/CLI.hpp>
#include <algorithm>
#include <climits>
#include <sstream>
#include <unistd.h>

namespace vdk {

static std::string versionJson();

namespace {

const char ExitCodes[] = "Exit codes: 0 done, 1 refused by a check, 2 usage, 3 no such JVM or "
                         "several,\n4 attach refused, 5 agent failed, 6 timed out, 7 bad or "
                         "truncated input,\n8 cannot write, 127 cannot run, 130 aborted.\n";

std::string valueName(const OptionSpec& option) {
    switch (option.kind) {
    case ValueKind::None:
        return "";
    case ValueKind::Number:
        return "N";
    case ValueKind::Duration:
        return "TIME";
    case ValueKind::Size:
        return "BYTES";
    case ValueKind::File:
        return "FILE";
    case ValueKind::Folder:
        return "FOLDER";
    case ValueKind::Choice:
        return join(option.choices, "|");
    default:
        return "TEXT";
    }
}

[[noreturn]] void failUsage(const std::string& message, const std::string& command) {
    throw ClientError(ExitCode::Usage, "usage", message,
                      "`vdk " + (command.empty() ? "" : command + " ") + "--help` tells more");
}

// What a value has to look like, for the message on one that does not.
std::string valueForm(const OptionSpec& option) {
    switch (option.kind) {
    case ValueKind::Number:
        return "a whole number from 0 to " + std::to_string(INT_MAX);
    case ValueKind::Size:
        return "a whole number of bytes, k for 1024 or m for 1048576 behind it, below 2g";
    case ValueKind::Duration:
        return "a whole number with ms, s, m or h behind it, at most 24 days";
    case ValueKind::Choice:
        return join(option.choices, "|");
    default:
        return valueName(option);
    }
}

void checkValue(const OptionSpec& option, const std::string& value, const std::string& command) {
    bool good = true;
    if (option.kind == ValueKind::Number) {
        good = parseNumber(value, 0, INT_MAX).has_value();
    } else if (option.kind == ValueKind::Duration) {
        good = parseDurationMs(value).has_value();
    } else if (option.kind == ValueKind::Size) {
        good = parseSize(value).has_value();
    } else if (option.kind == ValueKind::Choice) {
        good =
            std::find(option.choices.begin(), option.choices.end(), value) != option.choices.end();
    } else if (option.kind == ValueKind::File || option.kind == ValueKind::Folder ||
               option.kind == ValueKind::Target || option.kind == ValueKind::Source) {
        good = !value.empty();
    }
    if (!good) {
        failUsage("'" + printable(value) + "' is no value of " + option.name + " (" +
                      valueForm(option) + ")",
                  command);
    }
}

// ": did you mean --json?" behind an error on a word that is close to an option.
std::string didYouMeanOption(const std::vector<std::string>& words,
                             const std::vector<OptionSpec>& options) {
    std::vector<std::string> names;
    for (const OptionSpec& option : options) {
        if (!option.isPositional()) {
            names.push_back(option.name);
        }
    }
    for (const std::string& word : words) {
        std::string name = word.substr(0, word.find('='));
        bool known = std::find(names.begin(), names.end(), name) != names.end();
        if (startsWith(name, "--") && !known) {
            return didYouMean(name, names);
        }
    }
    return "";
}

// Takes an option that may have a value out of the words. Behind a blank it is one only with a
// unit: a number alone is a process.
std::optional<std::vector<std::string>> takeOptionalValue(const OptionSpec& option,
                                                          std::vector<std::string>& words) {
    std::optional<std::vector<std::string>> values;
    const auto isValue = [&](size_t i) {
        return i < words.size() && !words[i].empty() && parseSize(words[i]) &&
               !parseNumber(words[i], 0, LONG_MAX);
    };
    for (size_t i = 0; i < words.size();) {
        const bool isAlone = words[i] == option.name;
        if (!isAlone && !startsWith(words[i], option.name + "=")) {
            i++;
            continue;
        }
        values.emplace();
        const size_t count = isAlone && isValue(i + 1) ? 2 : 1;
        if (!isAlone) {
            values->push_back(words[i].substr(option.name.size() + 1));
        } else if (count == 2) {
            values->push_back(words[i + 1]);
        }
        words.erase(words.begin() + long(i), words.begin() + long(i + count));
    }
    return values;
}

// Reads one command's arguments with CLI11. Values are checked afterwards, by the table.
Arguments parseArguments(const Command& command, std::vector<std::string> words) {
    Arguments result;
    auto separator = std::find(words.begin(), words.end(), "--");
    if (separator != words.end()) {
        if (command.takesProgram) {
            result.command.assign(separator + 1, words.end());
        } else {
            result.values["--"].assign(separator + 1, words.end());
        }
        words.erase(separator, words.end());
    }
    CLI::App app;
    app.set_help_flag();
    std::vector<OptionSpec> options = allOptions(command);
    std::map<std::string, std::vector<std::string>> values;
    for (const OptionSpec& option : options) {
        if (option.isValueOptional) {
            if (auto given = takeOptionalValue(option, words)) {
                result.values[option.name] = *given;
                values[option.name] = *given;
            }
            continue;
        }
        std::string names =
            option.shortName.empty() ? option.name : option.shortName + "," + option.name;
        if (option.kind == ValueKind::None) {
            for (const std::string& word : words) {
                if (startsWith(word, option.name + "=")) {
                    failUsage(option.name + " takes no value", command.name);
                }
            }
            app.add_flag_function(names, [&values, name = option.name](int64_t count) {
                if (count > 0) {
                    values[name] = {"1"};
                }
            });
            continue;
        }
        CLI::Option* added = app.add_option(names, values[option.name]);
        if (option.repeated && !option.isPositional()) {
            added->expected(1, CLI::detail::expected_max_vector_size)->allow_extra_args(false);
        } else if (option.repeated) {
            added->expected(0, 1 << 20);
        } else if (option.isPositional()) {
            added->expected(1)->allow_extra_args(false);
        } else {
            added->expected(1)->allow_extra_args(false)->take_last();
        }
    }
    std::reverse(words.begin(), words.end());
    try {
        app.parse(words);
    } catch (const CLI::ExtrasError& e) {
        failUsage(std::string(e.what()) + didYouMeanOption(words, options), command.name);
    } catch (const CLI::ParseError& e) {
        failUsage(e.what(), command.name);
    }
    for (const OptionSpec& option : options) {
        std::vector<std::string>& given = values[option.name];
        // What stands behind "--" continues the positionals.
        auto rest = result.values.find("--");
        if (option.isPositional() && rest != result.values.end() && given.empty() &&
            !rest->second.empty()) {
            size_t count = option.repeated ? rest->second.size() : 1;
            given.assign(rest->second.begin(), rest->second.begin() + long(count));
            rest->second.erase(rest->second.begin(), rest->second.begin() + long(count));
        }
        for (const std::string& value : given) {
            checkValue(option, value, command.name);
        }
        if (!given.empty()) {
            result.values[option.name] = given;
        }
    }
    return result;
}

// Runs before the arguments count: help is given for an incomplete command line too.
bool wantsHelp(const Command& command, const std::vector<std::string>& words, Console& console) {
    for (const std::string& word : words) {
        if (word == "--") {
            return false;
        }
        if (word == "--help" || word == "-h") {
            console.out << commandHelp(command, word == "--help");
            return true;
        }
    }
    return false;
}

// A command that takes targets as well may go without one.
bool needsProgram(const Command& command) {
    return command.takesProgram &&
           std::none_of(command.options.begin(), command.options.end(),
                        [](const OptionSpec& option) { return option.kind == ValueKind::Target; });
}

void checkRequired(const Command& command, const Arguments& arguments) {
    for (const OptionSpec& option : command.options) {
        if (option.required && !arguments.has(option.name)) {
            failUsage(option.name + " is missing: " + usageLine(command), command.name);
        }
    }
    auto rest = arguments.values.find("--");
    if (rest != arguments.values.end() && !rest->second.empty()) {
        failUsage("'" + printable(rest->second.front()) + "' is one argument too many",
                  command.name);
    }
    if (needsProgram(command) && arguments.command.empty() && !arguments.has("--print-option")) {
        failUsage("no program to run: " + usageLine(command), command.name);
    }
}

// Lines of the code that the client shares with the agent go to standard error, on demand only.
bool showSharedLog = false;

void sharedLogLine(const char* line) {
    if (showSharedLog) {
        fprintf(stderr, "%s\n", line);
    }
}

// The most likely mistake is told by its name, ahead of what the parser makes of the rest.
void checkSeparator(const Command& command, const std::vector<std::string>& words) {
    auto has = [&](const char* word) {
        return std::find(words.begin(), words.end(), word) != words.end();
    };
    if (!needsProgram(command) || has("--") || has("--print-option")) {
        return;
    }
    throw ClientError(ExitCode::Usage, "usage", "no program to run: there is no `--`",
                      "put `--` before the program's command: `vdk " + command.name +
                          " sampling -- java -jar app.jar`");
}

// The command that the words begin with, and as many of them as name it.
const Command& namedCommand(const std::vector<std::string>& words, size_t* count = nullptr) {
    const std::string& name = words[0];
    const Command* command = words.size() > 1 ? findCommand(name + " " + words[1]) : nullptr;
    if (count) {
        *count = command ? 2 : 1;
    }
    command = command ? command : findCommand(name);
    if (!command) {
        std::vector<std::string> names;
        for (const Command& known : commands()) {
            names.push_back(known.name);
        }
        failUsage("there is no command '" + printable(name) + "'" + didYouMean(name, names), "");
    }
    return *command;
}

int dispatch(const std::vector<std::string>& words, Console& console) {
    if (words.empty()) {
        console.err << programHelp();
        return int(ExitCode::Usage);
    }
    if (words[0] == "--help" || words[0] == "-h" || words[0] == "help") {
        bool named = words[0] == "help" && words.size() > 1;
        if (named && words[1] == "--man") {
            console.out << manualPage();
        } else if (named && words[1] == "options") {
            Options::printUsage();
        } else {
            console.out << (named
                                ? commandHelp(namedCommand({words.begin() + 1, words.end()}), true)
                                : programHelp());
        }
        return 0;
    }
    if (words[0] == "--version" || words[0] == "version") {
        bool json = std::find(words.begin(), words.end(), "--json") != words.end();
        console.out << (json ? versionJson() : versionText());
        return 0;
    }
    // Known ahead, so that an error in the line is already told the way that was asked.
    auto separator = std::find(words.begin(), words.end(), "--");
    console.json = std::find(words.begin(), separator, "--json") != separator;
    if (startsWith(words[0], "-")) {
        failUsage("'" + printable(words[0]) + "' comes before the command: options stand behind it",
                  "");
    }
    size_t named = 0;
    const Command* command = &namedCommand(words, &named);
    std::vector<std::string> rest(words.begin() + long(named), words.end());
    if (wantsHelp(*command, rest, console)) {
        return 0;
    }
    checkSeparator(*command, rest);
    Arguments arguments = parseArguments(*command, rest);
    ColorMode color = arguments.text("--color") == "always"  ? ColorMode::Always
                      : arguments.text("--color") == "never" ? ColorMode::Never
                                                             : ColorMode::Auto;
    showSharedLog = arguments.has("--verbose") && !arguments.has("--json");
    Logger::setSink(sharedLogLine);
    console.configure(arguments.has("--json"), arguments.has("--quiet"), arguments.has("--verbose"),
                      color);
    checkRequired(*command, arguments);
    if (arguments.has("--host")) {
        RemoteCall call = {arguments.text("--host"), withoutHost(words)};
        call.copies = arguments.has("--copy-vdk");
        call.needsTerminal = console.outIsTerminal && console.errIsTerminal && !console.json;
        runOnHost(console, call);
    }
    return command->run(console, arguments);
}

} // namespace

std::string usageLine(const Command& command) {
    std::string line = "vdk " + command.name;
    for (const OptionSpec& option : command.options) {
        if (!option.isPositional()) {
            line += option.required ? " " + option.name + " " + valueName(option) : "";
            continue;
        }
        std::string name =
            option.kind == ValueKind::Choice ? join(option.choices, "|") : option.name;
        name += option.repeated ? "..." : "";
        line += option.required ? " " + name : " [" + name + "]";
    }
    line += " [options]";
    if (!command.takesProgram) {
        return line;
    }
    return line + (needsProgram(command) ? " -- program ..." : " [-- program ...]");
}

std::string optionHead(const OptionSpec& option) {
    std::string head =
        option.shortName.empty() ? option.name : option.shortName + ", " + option.name;
    if (option.isValueOptional) {
        return head + "[=" + valueName(option) + "]";
    }
    bool hasValue = !option.isPositional() && option.kind != ValueKind::None;
    return hasValue ? head + " " + valueName(option) : head;
}

const std::vector<std::pair<int, std::string>>& exitCodeTexts() {
    static const std::vector<std::pair<int, std::string>> texts = {
        {0, "done"},
        {1, "a check said no, for example `vdk top` while sampling is off"},
        {2, "wrong command line, or it names a file that is not there"},
        {3, "no such JVM, or several"},
        {4, "the JVM cannot be attached to, or did not load the agent"},
        {5, "the agent answered with an error, or does not answer at its port"},
        {6, "no answer in time"},
        {7, "bad or truncated input: a damaged file, or an answer that does not hold up"},
        {8, "an output file cannot be written"},
        {127, "`vdk run` could not start the program; otherwise it ends as the program does"},
        {130, "aborted by Ctrl-C"},
    };
    return texts;
}

// When this client was built, from its own sources; the stamp of the protocol and of the agent's
// archive is a constant of the release.
static const char BuildDate[] = __DATE__;

static std::string versionJson() {
    std::ostringstream text;
    JsonWriter json(text, true);
    beginDocument(json, "vdk.version/1").field("version", VDK_VERSION);
    json.field("product", VDK_PRODUCT).field("built", BuildDate).endObject();
    return text.str() + "\n";
}

std::string versionText() {
    return std::string("vdk ") + VDK_VERSION + " (" + VDK_PRODUCT + ", built " + BuildDate +
           ")\nprofiles JVMs of Java 6 and later; tested with 17 and 25\n";
}

std::string programHelp() {
    std::string text = "Usage: vdk <command> ...\n\nExamples:\n"
                       "  vdk run sampling -- java -jar app.jar   start a program with the agent\n"
                       "  vdk attach app.jar sampling             or load it into a running one\n"
                       "  vdk top app.jar                         watch its hot methods\n"
                       "  vdk snapshot app.jar --out app.snapshot save what was measured\n"
                       "  vdk report app.snapshot                 and read it again\n\nCommands:\n";
    size_t width = 0;
    for (const Command& command : commands()) {
        width = std::max(width, command.name.size());
    }
    for (const Command& command : commands()) {
        text += "  " + command.name + std::string(width - command.name.size() + 2, ' ') +
                command.summary + "\n";
    }
    text +=
        "\nTARGET is a process id, part of a main class, JAR or session name, or [host]:port.\n"
        "`vdk <command> --help` tells the options of a command, `vdk help options` those of the\n"
        "agent, `vdk --version` the release.\n\n";
    return text + ExitCodes;
}

std::string commandHelp(const Command& command, bool longForm) {
    std::string text =
        "Usage: " + usageLine(command) + "\n\n" + capitalized(command.summary) + ".\n";
    if (longForm && !command.details.empty()) {
        text += "\n" + command.details + "\n";
    }
    if (longForm && !command.examples.empty()) {
        text += "\nExamples:\n";
        for (const std::string& line : split(command.examples, '\n')) {
            text += "  " + line + "\n";
        }
    }
    text += "\nOptions:\n";
    std::vector<std::pair<std::string, std::string>> lines;
    size_t width = 0;
    for (const OptionSpec& option : allOptions(command)) {
        std::string left = optionHead(option);
        width = std::max(width, left.size());
        lines.emplace_back(left, option.help);
    }
    for (const auto& [left, help] : lines) {
        text += "  " + left + std::string(width - left.size() + 2, ' ') + help + "\n";
    }
    return text + (longForm ? std::string("\n") + ExitCodes : "");
}

int runClient(const std::vector<std::string>& arguments, Console& console) {
    try {
        int code = dispatch(arguments, console);
        console.out.flush();
        console.flushWarnings();
        if (!console.out) {
            throw ClientError(ExitCode::CannotWrite,
                              isReaderGone() ? "output.closed" : "output.write",
                              "cannot write to standard output");
        }
        return code;
    } catch (const ClientError& e) {
        console.out.flush();
        // A reader that has seen enough is no failure to tell about; the exit code does.
        if (e.word != "output.closed") {
            console.error(e);
        }
        return int(e.code);
    } catch (const VDKRuntimeException&) {
        console.error(
            ClientError(ExitCode::BadInput, "internal", "internal error", "--verbose shows where"));
        return int(ExitCode::BadInput);
    } catch (const std::bad_alloc&) {
        console.error(ClientError(ExitCode::BadInput, "memory", "out of memory"));
        return int(ExitCode::BadInput);
    } catch (const std::exception& e) {
        console.error(ClientError(ExitCode::BadInput, "internal",
                                  std::string("internal error: ") + e.what()));
        return int(ExitCode::BadInput);
    }
}

} // namespace vdk
