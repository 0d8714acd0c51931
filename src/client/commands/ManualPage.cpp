// The manual page, made from the table of commands.
#include "client/commands/CommandLine.h"
#include "client/console/Text.h"
#include "core/ground/Version.h"

namespace vdk {

namespace {

// A text as roff prints it unchanged.
std::string roff(const std::string& text) {
    std::string result;
    for (char c : text) {
        result += c == '\\' ? "\\e" : c == '-' ? "\\-" : std::string(1, c);
    }
    return startsWith(result, ".") || startsWith(result, "'") ? "\\&" + result : result;
}

std::string sentence(const std::string& text) {
    std::string result = roff(capitalized(text));
    return endsWith(result, ".") ? result : result + ".";
}

void addItem(std::string& page, const std::string& head, const std::string& text) {
    page += ".TP\n.B " + roff(head) + "\n" + sentence(text) + "\n";
}

// Lines that begin with a blank stand as they are, others flow.
void addText(std::string& page, const std::string& text) {
    bool fixed = false;
    for (const std::string& line : split(text, '\n')) {
        if (startsWith(line, " ") != fixed) {
            fixed = !fixed;
            page += fixed ? ".nf\n" : ".fi\n";
        }
        page += roff(line) + "\n";
    }
    page += fixed ? ".fi\n" : "";
}

void addCommand(std::string& page, const Command& command) {
    page += ".SS " + roff(usageLine(command)) + "\n" + sentence(command.summary) + "\n";
    if (!command.details.empty()) {
        page += ".PP\n";
        addText(page, command.details);
    }
    for (const OptionSpec& option : command.options) {
        addItem(page, optionHead(option), option.help);
    }
    page += ".PP\nExamples:\n.PP\n.nf\n";
    for (const std::string& line : split(command.examples, '\n')) {
        page += "    " + roff(line) + "\n";
    }
    page += ".fi\n";
}

const char Introduction[] =
    ".TH VDK 1 \"\" \"" VDK_FULL_NAME "\" \"User commands\"\n"
    ".SH NAME\nvdk \\- profile Java programs\n"
    ".SH SYNOPSIS\n.B vdk\n.I command\n.RI [ arguments ]\n.RI [ options ]\n"
    ".SH DESCRIPTION\n"
    "Starts Java programs with the profiler's agent or loads the agent into running ones,\n"
    "controls it over its socket, and reads what it measured, live or from snapshot files.\n"
    ".PP\nA\n.I TARGET\n"
    "is a process id, a part of a main class, JAR or session name (letters compared without "
    "case),\n"
    "or an address,\n.IR [host]:port .\n"
    "A name that fits several JVMs is refused, and the JVMs are listed. A\n.I SOURCE\n"
    "is a snapshot file or a target that has the agent. A\n.I TIME\n"
    "is a whole number with ms, s, m or h behind it, at most 24 days; without a unit it means\n"
    "seconds.\n"
    ".PP\nResults go to standard output, everything else to standard error. When standard output\n"
    "is a pipe whose reader has gone, as behind head(1), the exit status is 8 and nothing is "
    "said.\n"
    ".SH COMMON OPTIONS\n";

const char Ending[] =
    ".SH ENVIRONMENT\n"
    ".TP\n.B VDK_AGENT\n"
    "Path of the agent library. By default libvdkagent.so is looked for beside vdk, in ../lib and\n"
    "in ../lib/vdk.\n"
    ".TP\n.B JAVA_TOOL_OPTIONS\n"
    "Gets the agent's option, behind what stands there, when\n.B vdk run\n"
    "starts a program that is no Java launcher.\n"
    ".TP\n.B XDG_RUNTIME_DIR\n"
    "Folder for the private folder vdk\\-<uid> of programs that vdk starts or attaches to; /tmp\n"
    "without it.\n"
    ".TP\n.B NO_COLOR\nNo color, unless\n.B \\-\\-color always\nis given.\n"
    ".SH FILES\n"
    ".TP\n.I ~/.vdk/log/<pid>.log\nThe agent's log.\n"
    ".TP\n.I ~/Snapshots\n"
    "Where the agent writes snapshots, unless its option dir= says otherwise.\n"
    ".TP\n.I $XDG_RUNTIME_DIR/vdk\\-<uid>, /tmp/vdk\\-<uid>\n"
    "Files of the agent; refused when another user owns it or could write into it.\n"
    ".SH SEE ALSO\n.BR java (1),\n.BR jcmd (1)\n";

} // namespace

std::string manualPage() {
    std::string page = Introduction;
    for (const OptionSpec& option : commonOptions()) {
        addItem(page, optionHead(option), option.help);
    }
    addItem(page, "--version", "the release; without a command");
    page += ".SH COMMANDS\n";
    for (const Command& command : commands()) {
        addCommand(page, command);
    }
    page += ".SH EXIT STATUS\n";
    for (const auto& [code, meaning] : exitCodeTexts()) {
        addItem(page, std::to_string(code), meaning);
    }
    return page + Ending;
}

} // namespace vdk
