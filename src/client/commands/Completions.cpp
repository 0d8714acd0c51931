// Completion scripts, made from the table of commands.
#include "client/commands/Commands.h"
#include "client/console/Text.h"
#include "client/triggers/TriggerNames.h"

#include <ostream>
#include <set>

namespace vdk {

namespace {

// What stands behind a word of the command line: "file", "folder", "target", "source", "text", or
// the choices with | between them.
std::string kindWord(const OptionSpec& option) {
    switch (option.kind) {
    case ValueKind::File:
        return "file";
    case ValueKind::Folder:
        return "folder";
    case ValueKind::Target:
        return "target";
    case ValueKind::Source:
        return "source";
    case ValueKind::TriggerLine:
        return "trigger";
    default:
        return option.choices.empty() ? "text" : join(option.choices, "|");
    }
}

std::vector<std::string> namesOf(const OptionSpec& option) {
    std::vector<std::string> names = {option.name};
    if (!option.shortName.empty()) {
        names.push_back(option.shortName);
    }
    return names;
}

bool hasTwoWords(const Command& command) {
    return command.name.find(' ') != std::string::npos;
}

std::vector<std::string> commandNames() {
    std::vector<std::string> names;
    for (const Command& command : commands()) {
        if (!hasTwoWords(command)) {
            names.push_back(command.name);
        }
    }
    return names;
}

// The names of two words in single quotes.
std::string pairedNames(const char* separator) {
    std::vector<std::string> names;
    for (const Command& command : commands()) {
        if (hasTwoWords(command)) {
            names.push_back(shellQuoted(command.name));
        }
    }
    return join(names, separator);
}

// Names of all options that take a value, whatever the command.
std::string valuedNames(const char* separator) {
    std::set<std::string> names;
    for (const Command& command : commands()) {
        for (const OptionSpec& option : allOptions(command)) {
            if (!option.isPositional() && option.needsValue()) {
                for (const std::string& name : namesOf(option)) {
                    names.insert(name);
                }
            }
        }
    }
    return join({names.begin(), names.end()}, separator);
}

// Names that may begin a line of the trigger text.
std::vector<std::string> triggerWords() {
    std::vector<std::string> words = namesOfAll(triggerListeners());
    for (const auto& more : {methodEventPrefixes(), namesOfAll(triggerActions())}) {
        words.insert(words.end(), more.begin(), more.end());
    }
    return words;
}

std::vector<std::string> macroNames() {
    std::vector<std::string> names;
    for (const TriggerMacro& macro : triggerMacros()) {
        names.push_back(macro.name);
    }
    return names;
}

// Lines of a shell's case: a listener or an action, and its properties with the sign behind them.
std::string triggerProperties(const char* separator) {
    std::string lines;
    for (const auto* list : {&triggerListeners(), &triggerActions()}) {
        for (const TriggerName& owner : *list) {
            std::vector<std::string> names;
            for (const TriggerProperty& property : owner.properties) {
                names.push_back(property.name + "=");
            }
            lines +=
                "    " + owner.name + ") echo " + shellQuoted(join(names, separator)) + " ;;\n";
        }
    }
    return lines;
}

const char BashHead[] = R"sh(# bash completion for vdk
_vdk_offer() { # kind of word, what is there of it
    local IFS=$'\n'
    case $1 in
    file+*) mapfile -t COMPREPLY < <(W=${1#file+}; compgen -f -W "${W//|/$'\n'}" -- "$2") ;;
    target+*) mapfile -t COMPREPLY < <(W=${1#target+}; compgen -W "$(_vdk_jvms)"$'\n'"${W//|/$'\n'}" -- "$2") ;;
    trigger) mapfile -t COMPREPLY < <(_vdk_trigger "${2#[\'\"]}") ;;
    file) mapfile -t COMPREPLY < <(compgen -f -- "$2") ;;
    folder) mapfile -t COMPREPLY < <(compgen -d -- "$2") ;;
    target) mapfile -t COMPREPLY < <(compgen -W "$(_vdk_jvms)" -- "$2") ;;
    source) mapfile -t COMPREPLY < <(compgen -f -W "$(_vdk_jvms)" -- "$2") ;;
    program) mapfile -t COMPREPLY < <(compgen -c -f -- "$2") ;;
    text) ;;
    *) mapfile -t COMPREPLY < <(compgen -W "${1//|/$'\n'}" -- "$2") ;;
    esac
    # A name that is to go on.
    [[ ${#COMPREPLY[@]} != 1 || ${COMPREPLY[0]} != *= ]] || compopt -o nospace 2>/dev/null
}
_vdk_jvms() {
    vdk list --plain 2>/dev/null | tr '\t' '\n'
}
_vdk_trigger() { # what is there of a listener, action, property or macro
    local word words owned=
    for word in "${COMP_WORDS[@]:0:COMP_CWORD}"; do
        [[ $word != set ]] || { compgen -f -- "$1"; return; }
        words=$(_vdk_trigger_properties "$word")
        [[ -z $words ]] || owned=$words
    done
    if [[ $1 == *'${'* ]]; then
        compgen -P "${1%'${'*}\${" -S '}' -W "$_vdk_macros" -- "${1##*'${'}"
    else
        compgen -W "$owned"$'\n'"$_vdk_trigger_words" -- "$1"
    fi
}
_vdk() {
    local current=${COMP_WORDS[COMP_CWORD]} previous=${COMP_WORDS[COMP_CWORD-1]}
    local command=${COMP_WORDS[1]} options= word i index=0 start=2
    local -a places=()
    COMPREPLY=()
    # The shell cuts "--option=value" into three words.
    if [[ $current == = ]]; then
        current=
    elif [[ $previous == = && COMP_CWORD -gt 2 ]]; then
        previous=${COMP_WORDS[COMP_CWORD-2]}
    fi
)sh";

const char BashTail[] = R"sh(    for ((i = start; i < COMP_CWORD; i++)); do
        word=${COMP_WORDS[i]}
        if [[ $word == -- ]]; then
            [[ $i == $((COMP_CWORD - 1)) ]] && _vdk_offer program "$current" || _vdk_offer file "$current"
            return
        elif [[ $word == = ]]; then
            i=$((i + 1))
        elif [[ $word == -* ]]; then
            [[ " $valued " == *" $word "* && ${COMP_WORDS[i+1]} != = ]] && i=$((i + 1))
        else
            index=$((index + 1))
        fi
    done
    if [[ $current == -* ]]; then
        _vdk_offer "$options" "$current"
    elif ((index < ${#places[@]})); then
        _vdk_offer "${places[index]}" "$current"
    elif [[ -n $rest ]]; then
        _vdk_offer "$rest" "$current"
    fi
}
complete -o filenames -F _vdk vdk
)sh";

// Their names, for the functions of bash and zsh.
void writeTriggerNames(std::ostream& out) {
    out << "_vdk_trigger_words=" << shellQuoted(join(triggerWords(), "\n"))
        << "\n_vdk_macros=" << shellQuoted(join(macroNames(), "\n"))
        << "\n_vdk_trigger_properties() { # of a listener or an action\n    case $1 in\n"
        << triggerProperties("\n") << "    esac\n}\n";
}

void writeBash(std::ostream& out) {
    writeTriggerNames(out);
    out << BashHead << "    local rest= valued=" << shellQuoted(valuedNames(" "))
        << "\n    if ((COMP_CWORD == 1)); then\n        _vdk_offer "
        << shellQuoted(join(commandNames(), "|") + "|help|--help|--version")
        << " \"$current\"\n        return\n    fi\n    case \"$command ${COMP_WORDS[2]}\" in\n    "
        << pairedNames("|")
        << ") ((COMP_CWORD > 2)) && command=\"$command ${COMP_WORDS[2]}\" start=3 ;;\n    esac\n"
        << "    case \"$command $previous\" in\n";
    for (const Command& command : commands()) {
        for (const OptionSpec& option : allOptions(command)) {
            if (option.isPositional() || !option.needsValue()) {
                continue;
            }
            std::string patterns;
            for (const std::string& name : namesOf(option)) {
                patterns += (patterns.empty() ? "" : "|") + shellQuoted(command.name + " " + name);
            }
            out << "    " << patterns << ") _vdk_offer " << shellQuoted(kindWord(option))
                << " \"$current\"; return ;;\n";
        }
    }
    out << "    esac\n    case $command in\n    help) places=("
        << shellQuoted(join(commandNames(), "|") + "|options|--man") << ") ;;\n";
    for (const Command& command : commands()) {
        std::vector<std::string> options;
        std::string places, rest;
        for (const OptionSpec& option : allOptions(command)) {
            if (!option.isPositional()) {
                for (const std::string& name : namesOf(option)) {
                    options.push_back(name);
                }
            } else if (option.repeated) {
                rest = kindWord(option);
            } else {
                std::string kind = kindWord(option);
                std::vector<std::string> words = wordsBehind(command);
                if (places.empty() && (kind == "file" || kind == "target") && !words.empty()) {
                    kind += "+" + join(words, "|");
                }
                places += (places.empty() ? "" : " ") + shellQuoted(kind);
            }
        }
        out << "    " << shellQuoted(command.name)
            << ") options=" << shellQuoted(join(options, "|")) << " places=(" << places
            << ") rest=" << shellQuoted(rest) << " ;;\n";
    }
    out << "    esac\n" << BashTail;
}

// The text of a zsh specification: brackets and colons separate its parts.
std::string zshText(const std::string& text) {
    std::string result;
    for (char c : text) {
        if (c == '[' || c == ']' || c == ':' || c == '\\') {
            result += '\\';
        }
        result += c;
    }
    return result;
}

// ":message:action" for a value.
std::string zshValue(const OptionSpec& option) {
    switch (option.kind) {
    case ValueKind::None:
        return "";
    case ValueKind::File:
        return ":file:_files";
    case ValueKind::Folder:
        return ":folder:_files -/";
    case ValueKind::Target:
        return ":JVM:_vdk_targets";
    case ValueKind::Source:
        return ":snapshot or JVM:_vdk_sources";
    case ValueKind::TriggerLine:
        return ":line:_vdk_trigger";
    default:
        return option.choices.empty() ? ":value: " : ":value:(" + join(option.choices, " ") + ")";
    }
}

const char ZshHead[] = R"sh(#compdef vdk
_vdk_targets() {
    local -a targets
    targets=("${(@f)$(vdk list --plain 2>/dev/null | sed 's/:/\\:/g; s/\t/:/')}")
    _describe -t targets JVM targets
}
_vdk_sources() {
    _alternative 'targets:JVM:_vdk_targets' 'files:file:_files'
}
_vdk_trigger() {
    (( ${words[(I)set]} )) && { _files; return }
    local word=$words[CURRENT-1] owned=
    for word in $words; do
        owned=${"$(_vdk_trigger_properties $word)":-$owned}
    done
    compadd -S '' -- ${=owned}
    compadd -- ${=_vdk_trigger_words}
}
_vdk() {
    local -a commands
)sh";

const char ZshMiddle[] = R"sh(    if (( CURRENT == 2 )); then
        _describe command commands
        return
    fi
    local command=$words[2]
    local separator=${words[(i)--]}
    if (( separator < CURRENT )); then
        shift $separator words
        (( CURRENT -= separator ))
        _normal
        return
    fi
    if (( CURRENT > 3 )) && (( ${pairs[(Ie)$words[2] $words[3]]} )); then
        command="$words[2] $words[3]"
        shift words
        (( CURRENT-- ))
    elif (( CURRENT == 3 )); then
        local -a seconds=(${${(M)pairs:#$command *}#* })
        (( $#seconds )) && compadd -a seconds
    fi
    shift words
    (( CURRENT-- ))
    case $command in
    help) _arguments '1:command:_vdk_topics' ;;
)sh";

void writeZsh(std::ostream& out) {
    out << ZshHead << "    commands=(\n";
    for (const Command& command : commands()) {
        if (!hasTwoWords(command)) {
            out << "        " << shellQuoted(zshText(command.name) + ":" + command.summary) << "\n";
        }
    }
    out << "        'help:tell more about a command'\n    )\n    local -a pairs=("
        << pairedNames(" ") << ")\n"
        << ZshMiddle;
    for (const Command& command : commands()) {
        out << "    " << shellQuoted(command.name) << ") _arguments";
        int place = 1;
        for (const OptionSpec& option : allOptions(command)) {
            std::string spec;
            if (option.isPositional()) {
                spec = (option.repeated ? "*" : std::to_string(place++)) + zshValue(option);
                out << " \\\n        " << shellQuoted(spec);
                continue;
            }
            std::string help = "[" + zshText(option.help) + "]" +
                               (option.isValueOptional ? ":" : "") + zshValue(option);
            bool valued = option.kind != ValueKind::None;
            const char* sign = option.isValueOptional ? "=-" : valued ? "=" : "";
            out << " \\\n        " << shellQuoted(option.name + sign + help);
            if (!option.shortName.empty()) {
                out << " \\\n        "
                    << shellQuoted(option.shortName + (valued ? "+" : "") + help);
            }
        }
        out << " ;;\n";
    }
    out << "    esac\n}\n";
    writeTriggerNames(out);
    out << "_vdk_topics() {\n    local -a topics\n    topics=(" << join(commandNames(), " ")
        << " options --man)\n    compadd -a topics\n}\n_vdk \"$@\"\n";
}

const char FishHead[] = R"sh(# fish completion for vdk
function __vdk_in --argument-names command # true behind that command
    set -l words (commandline -opc)
    set -l count (count (string split ' ' $command))
    test (count $words) -gt $count; or return 1
    set -l last (math $count + 1)
    test "$words[2..$last]" = "$command"; or return 1
    # "heap" is no longer meant behind "heap live".
    test $count -gt 1; or test (count $words) -lt 3; or not contains -- "$words[2..3]" $__vdk_pairs
end
function __vdk_at --argument-names command place # true where that place of the command is typed
    __vdk_in $command; or return 1
    set -l words (commandline -opc)
    set -l last (math 1 + (count (string split ' ' $command)))
    set -e words[1..$last]
    set -l count 0
    set -l skip no
    for word in $words
        if test $skip = yes
            set skip no
        else if test "$word" = --
            return 1
        else if contains -- $word $__vdk_valued
            set skip yes
        else if not string match -q -- '-*' $word
            set count (math $count + 1)
        end
    end
    test $skip = no; or return 1
    if test $place = rest
        test $count -ge $argv[3]
    else
        test $count -eq $place
    end
end
function __vdk_targets
    vdk list --plain 2>/dev/null
end
function __vdk_trigger
    set -l words (commandline -opc)
    set -l owned
    for word in $words
        set -l found (__vdk_trigger_properties $word)
        test (count $found) -eq 0; or set owned $found
    end
    printf '%s\n' $owned $__vdk_trigger_words
end
complete -c vdk -f
complete -c vdk -n __fish_use_subcommand -a help -d 'tell more about a command'
complete -c vdk -n 'contains -- -- (commandline -opc)' -a '(__fish_complete_subcommand)'
)sh";

void writeFishOption(std::ostream& out, const Command& command, const OptionSpec& option) {
    out << "complete -c vdk -n " << shellQuoted("__vdk_in " + shellWord(command.name)) << " -l "
        << option.name.substr(2)
        << (option.shortName.empty() ? "" : " -s " + option.shortName.substr(1)) << " -d "
        << shellQuoted(option.help);
    if (!option.choices.empty()) {
        out << " -x -a " << shellQuoted(join(option.choices, " "));
    } else if (option.kind == ValueKind::File) {
        out << " -r -F";
    } else if (option.kind == ValueKind::Folder) {
        out << " -x -a '(__fish_complete_directories)'";
    } else if (option.needsValue()) {
        out << " -x";
    }
    out << "\n";
}

void writeFishTriggers(std::ostream& out) {
    out << "set -g __vdk_trigger_words " << join(triggerWords(), " ")
        << "\nfunction __vdk_trigger_properties\n    switch $argv[1]\n";
    for (const auto* list : {&triggerListeners(), &triggerActions()}) {
        for (const TriggerName& owner : *list) {
            out << "        case " << owner.name << "\n";
            for (const TriggerProperty& property : owner.properties) {
                out << "            echo " << property.name << "=\n";
            }
        }
    }
    out << "    end\nend\n";
}

void writeFish(std::ostream& out) {
    out << "set -g __vdk_valued " << valuedNames(" ") << "\nset -g __vdk_pairs " << pairedNames(" ")
        << "\n"
        << FishHead;
    writeFishTriggers(out);
    out << "complete -c vdk -n '__vdk_at help 0' -a "
        << shellQuoted(join(commandNames(), " ") + " options --man") << "\n";
    for (const Command& command : commands()) {
        size_t blank = command.name.find(' ');
        out << "complete -c vdk -n "
            << (blank == std::string::npos
                    ? "__fish_use_subcommand"
                    : shellQuoted("__vdk_at " + command.name.substr(0, blank) + " 0"))
            << " -a " << command.name.substr(blank == std::string::npos ? 0 : blank + 1) << " -d "
            << shellQuoted(command.summary) << "\n";
        int place = 0;
        for (const OptionSpec& option : allOptions(command)) {
            if (!option.isPositional()) {
                writeFishOption(out, command, option);
                continue;
            }
            std::string at =
                "__vdk_at " + shellWord(command.name) + " " +
                (option.repeated ? "rest " + std::to_string(place) : std::to_string(place));
            place++;
            out << "complete -c vdk -n " << shellQuoted(at);
            bool isJvm = option.kind == ValueKind::Target || option.kind == ValueKind::Source;
            if (isJvm) {
                out << " -a '(__vdk_targets)'";
            } else if (!option.choices.empty()) {
                out << " -a " << shellQuoted(join(option.choices, " "));
            }
            if (option.kind == ValueKind::TriggerLine) {
                out << " -F -a '(__vdk_trigger)'";
            }
            if (option.kind == ValueKind::File || option.kind == ValueKind::Source) {
                out << " -F";
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
