#include "client/commands/Commands.h"

#include "client/commands/tables/Tables.h"
#include "client/console/Text.h"

#include <algorithm>

namespace vdk {

static std::vector<Command> allCommands() {
    std::vector<Command> all;
    for (const auto* group : {&jvmCommands(), &recordingCommands(), &reportCommands(),
                              &probeCommands(), &heapCommands(), &fleetCommands()}) {
        all.insert(all.end(), group->begin(), group->end());
    }
    all.push_back({"completions",
                   "print a completion script for a shell",
                   "",
                   "vdk completions bash > ~/.local/share/bash-completion/completions/vdk\n"
                   "vdk completions zsh > ~/.local/share/zsh/site-functions/_vdk\n"
                   "vdk completions fish > ~/.config/fish/completions/vdk.fish",
                   {{"SHELL", ValueKind::Choice, "which shell", {"bash", "zsh", "fish"}, true}},
                   false,
                   false,
                   runCompletions});
    return all;
}

const std::vector<Command>& commands() {
    static const std::vector<Command> all = allCommands();
    return all;
}

const Command* findCommand(const std::string& name) {
    const std::vector<Command>& all = commands();
    auto found = std::find_if(all.begin(), all.end(),
                              [&](const Command& command) { return command.name == name; });
    return found == all.end() ? nullptr : &*found;
}

std::vector<std::string> wordsBehind(const Command& command) {
    std::vector<std::string> words;
    for (const Command& other : commands()) {
        if (startsWith(other.name, command.name + " ")) {
            words.push_back(other.name.substr(command.name.size() + 1));
        }
    }
    return words;
}

const std::vector<OptionSpec>& commonOptions() {
    static const std::vector<OptionSpec> options = {
        {"--json", ValueKind::None, "machine-readable output"},
        {"--timeout", ValueKind::Duration, "limit for each wait for the agent (default 15s)"},
        {"--host", ValueKind::Text, "run the vdk of this machine over ssh: USER@MACHINE"},
        {"--copy-vdk", ValueKind::None, "with --host: bring this vdk there first"},
        {"--color", ValueKind::Choice, "when to use color", {"auto", "always", "never"}},
        {"--quiet", ValueKind::None, "no notes, no progress", {}, false, false, "-q"},
        {"--verbose", ValueKind::None, "show internal log lines", {}, false, false, "-v"},
        {"--help", ValueKind::None, "this help with examples; -h is short", {}, false, false, "-h"},
    };
    return options;
}

std::vector<OptionSpec> allOptions(const Command& command) {
    std::vector<OptionSpec> all = command.options;
    bool asksAgent = std::any_of(all.begin(), all.end(), [](const OptionSpec& option) {
        return option.kind == ValueKind::Target || option.kind == ValueKind::Source;
    });
    for (const OptionSpec& option : commonOptions()) {
        bool own = std::any_of(all.begin(), all.end(),
                               [&](const OptionSpec& other) { return other.name == option.name; });
        bool wanted = option.name == "--json"      ? command.printsData
                      : option.name == "--timeout" ? asksAgent
                                                   : true;
        if (!own && wanted) {
            all.push_back(option);
        }
    }
    return all;
}

std::string Arguments::text(const std::string& name, const std::string& fallback) const {
    auto found = values.find(name);
    return found == values.end() || found->second.empty() ? fallback : found->second.back();
}

long Arguments::number(const std::string& name, long fallback) const {
    return has(name) ? parseNumber(text(name), 0, INT32_MAX).value_or(fallback) : fallback;
}

long Arguments::durationMs(const std::string& name, long fallback) const {
    return has(name) ? parseDurationMs(text(name)).value_or(fallback) : fallback;
}

int Arguments::size(const std::string& name, int fallback) const {
    return has(name) ? parseSize(text(name)).value_or(fallback) : fallback;
}

const std::vector<std::string>& Arguments::all(const std::string& name) const {
    static const std::vector<std::string> none;
    auto found = values.find(name);
    return found == values.end() ? none : found->second;
}

} // namespace vdk
