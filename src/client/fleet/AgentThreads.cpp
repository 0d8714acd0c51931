#include "client/fleet/AgentThreads.h"

#include "client/attach/ProcFs.h"
#include "client/console/Text.h"

#include <filesystem>
#include <unistd.h>

namespace vdk {

namespace {

// Of "VDKAgent-CPUSampler": JVMs shorten the name, each release in its way, but not its beginning.
constexpr const char* OwnNames = "VDKAgen";

// Places of a thread's times in its stat file, counted from the field behind the name.
constexpr size_t UserTicks = 11, SystemTicks = 12;

double secondsOf(const std::string& stat) {
    const size_t nameEnd = stat.rfind(')');
    if (nameEnd == std::string::npos || nameEnd + 2 > stat.size()) {
        return 0;
    }
    const std::vector<std::string> fields = split(stat.substr(nameEnd + 2), ' ');
    if (fields.size() <= SystemTicks) {
        return 0;
    }
    const long ticks = parseNumber(fields[UserTicks], 0, INT64_MAX).value_or(0) +
                       parseNumber(fields[SystemTicks], 0, INT64_MAX).value_or(0);
    return double(ticks) / double(sysconf(_SC_CLK_TCK));
}

} // namespace

std::map<std::string, double> agentThreadSeconds(int pid) {
    std::map<std::string, double> seconds;
    if (pid <= 0) {
        return seconds;
    }
    const ProcFs processes;
    std::error_code problem; // threads end meanwhile
    for (std::filesystem::directory_iterator thread(processes.path(pid, "task"), problem), end;
         !problem && thread != end; thread.increment(problem)) {
        const auto name = readSmallFile(thread->path() / "comm");
        if (!name || !startsWith(*name, OwnNames)) {
            continue;
        }
        if (const auto stat = readSmallFile(thread->path() / "stat")) {
            seconds[name->substr(0, name->find('\n'))] += secondsOf(*stat);
        }
    }
    return seconds;
}

} // namespace vdk
