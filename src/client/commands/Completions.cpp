// Completion scripts, made from the table of commands.
#include "client/commands/Commands.h"
#include "client/console/Text.h"

#include <ostream>

namespace vdk {

namespace {

std::string optionWords(const Command& command) {
    std::vector<std::string> words;
    for (const OptionSpec& option : allOptions(command)) {
        if (!option.isPositional()) {
            words.push_back(option.name);
        } else if (option.kind == ValueKind::Choice) {
            words.insert(words.end(), option.choices.begin(), option.choices.end());
        }
    }
    return join(words, " ");
}

bool hasPositional(const Command& command, ValueKind kind) {
    for (const OptionSpec& option : command.options) {
        if (option.isPositional() && option.kind == kind) {
            return true;
        }
    }
    return false;
}

std::string commandNames() {
    std::vector<std::string> names;
    for (const Command& command : commands()) {
        names.push_back(command.name);
    }
    return join(names, " ");
}

// Shell code that lists the process ids of the JVMs.
const char TargetList[] = "vdk list 2>/dev/null | awk 'NR > 1 {print $1}'";

void writeBash(std::ostream& out) {
    out << "# bash completion for vdk\n"
           "_vdk() {\n"
           "    local current=${COMP_WORDS[COMP_CWORD]} previous=${COMP_WORDS[COMP_CWORD-1]}\n"
           "    local words= targets=no files=no\n"
           "    COMPREPLY=()\n"
           "    if [ \"$COMP_CWORD\" -eq 1 ]; then\n"
           "        COMPREPLY=($(compgen -W "
        << shellQuoted(commandNames() + " --help --version")
        << " -- \"$current\"))\n"
           "        return\n"
           "    fi\n"
           "    case \"${COMP_WORDS[1]} $previous\" in\n";
    for (const Command& command : commands()) {
        for (const OptionSpec& option : allOptions(command)) {
            if (option.isPositional() || option.kind == ValueKind::None) {
                continue;
            }
            out << "        \"" << command.name << " " << option.name << "\") COMPREPLY=($(compgen "
                << (option.kind == ValueKind::File ? std::string("-f")
                                                   : "-W " + shellQuoted(join(option.choices, " ")))
                << " -- \"$current\")); return ;;\n";
        }
    }
    out << "    esac\n"
           "    case ${COMP_WORDS[1]} in\n";
    for (const Command& command : commands()) {
        out << "        " << command.name << ") words=" << shellQuoted(optionWords(command))
            << "; targets="
            << (hasPositional(command, ValueKind::Source)   ? "yes; files=yes"
                : hasPositional(command, ValueKind::Target) ? "yes"
                : hasPositional(command, ValueKind::File)   ? "no; files=yes"
                                                            : "no")
            << " ;;\n";
    }
    out << "    esac\n"
           "    if [ \"${current#-}\" = \"$current\" ]; then\n"
           "        [ $targets = no ] || words=\"$words $("
        << TargetList
        << ")\"\n"
           "        [ $files = no ] || COMPREPLY=($(compgen -f -- \"$current\"))\n"
           "    fi\n"
           "    COMPREPLY+=($(compgen -W \"$words\" -- \"$current\"))\n"
           "}\n"
           "complete -o filenames -F _vdk vdk\n";
}

// The text of a zsh specification: brackets and colons separate its parts.
std::string zshText(const std::string& text) {
    std::string result;
    for (char c : text) {
        if (c == '[' || c == ']' || c == ':') {
            result += '\\';
        }
        result += c;
    }
    return result;
}

void writeZsh(std::ostream& out) {
    out << "#compdef vdk\n"
           "_vdk_targets() {\n"
           "    local -a targets\n"
           "    targets=(${(f)\"$("
        << TargetList
        << ")\"})\n"
           "    _alternative \"targets:JVM:($targets)\" $@\n"
           "}\n"
           "_vdk_sources() {\n"
           "    _vdk_targets 'files:file:_files'\n"
           "}\n"
           "_vdk() {\n"
           "    local -a commands\n"
           "    commands=(\n";
    for (const Command& command : commands()) {
        out << "        " << shellQuoted(command.name + ":" + zshText(command.summary)) << "\n";
    }
    out << "    )\n"
           "    if (( CURRENT == 2 )); then\n"
           "        _describe command commands\n"
           "        return\n"
           "    fi\n"
           "    local command=$words[2]\n"
           "    shift words\n"
           "    (( CURRENT-- ))\n"
           "    case $command in\n";
    for (const Command& command : commands()) {
        out << "    " << command.name << ") _arguments";
        for (const OptionSpec& option : allOptions(command)) {
            std::string value = option.kind == ValueKind::File     ? ":file:_files"
                                : option.kind == ValueKind::Target ? ":target:_vdk_targets"
                                : option.kind == ValueKind::Source ? ":source:_vdk_sources"
                                : option.kind == ValueKind::Choice
                                    ? ":value:(" + join(option.choices, " ") + ")"
                                : option.kind == ValueKind::None ? ""
                                                                 : ":value:";
            std::string spec = option.isPositional()
                                   ? (option.repeated ? "*" : "") + value
                                   : option.name + "[" + zshText(option.help) + "]" + value;
            out << " \\\n        " << shellQuoted(spec);
        }
        out << " ;;\n";
    }
    out << "    esac\n"
           "}\n"
           "_vdk \"$@\"\n";
}

void writeFish(std::ostream& out) {
    out << "# fish completion for vdk\n"
           "complete -c vdk -n __fish_use_subcommand -f\n";
    for (const Command& command : commands()) {
        out << "complete -c vdk -n __fish_use_subcommand -a " << command.name << " -d "
            << shellQuoted(command.summary) << "\n";
        std::string when = shellQuoted("__fish_seen_subcommand_from " + command.name);
        for (const OptionSpec& option : allOptions(command)) {
            out << "complete -c vdk -n " << when;
            if (option.isPositional()) {
                if (option.kind == ValueKind::Choice) {
                    out << " -f -a " << shellQuoted(join(option.choices, " "));
                } else if (option.kind == ValueKind::Target || option.kind == ValueKind::Source) {
                    out << (option.kind == ValueKind::Target ? " -f -a " : " -a ")
                        << shellQuoted(std::string("(") + TargetList + ")");
                }
                out << "\n";
                continue;
            }
            out << " -l " << option.name.substr(2) << " -d " << shellQuoted(option.help);
            if (option.kind == ValueKind::Choice) {
                out << " -x -a " << shellQuoted(join(option.choices, " "));
            } else if (option.kind != ValueKind::None) {
                out << (option.kind == ValueKind::File ? " -r" : " -x");
            }
            out << "\n";
        }
    }
}

} // namespace

int runCompletions(Console& console, const Arguments& arguments) {
    std::string shell = arguments.text("SHELL");
    if (shell == "bash") {
        writeBash(console.out);
    } else if (shell == "zsh") {
        writeZsh(console.out);
    } else {
        writeFish(console.out);
    }
    return 0;
}

} // namespace vdk
