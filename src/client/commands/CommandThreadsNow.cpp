// `vdk threads --now`: who runs, and who blocks whom, by the JVM's own thread dumps; no agent is
// needed, or loaded.
#include "client/attach/Attach.h"
#include "client/commands/Commands.h"
#include "client/commands/Sources.h"
#include "client/console/Signals.h"
#include "client/console/Text.h"
#include "client/threads/ThreadsNow.h"
#include "platform/Platform.h"

#include <algorithm>
#include <map>

namespace vdk {

namespace {

using Threads = std::vector<ThreadNow>;

constexpr int DefaultIntervalMs = 500;
constexpr size_t SmallestPool = 3;    // of fewer each has its line
constexpr double BusyPercent = 1;     // a busy thread has one, too
constexpr size_t ShownBlocked = 5;    // of those that one thread blocks
constexpr int DumpPatienceMs = 60000; // the JVM stops all threads for it

std::vector<HotSpotThread> dump(Machine& machine, const Jvm& jvm, const Arguments& arguments) {
    Attacher attacher(machine.processes, jvm, int(arguments.durationMs("--timeout", 10000)));
    attacher.open();
    const AttachReply reply = attacher.execute(
        "threaddump", {"-l"}, int(arguments.durationMs("--timeout", DumpPatienceMs)));
    std::vector<HotSpotThread> threads = parseHotSpotDump(reply.text);
    if (!reply.complete || reply.result != 0 || threads.empty()) {
        throw ClientError(ExitCode::AttachRefused, "attach.command",
                          "the JVM did not tell its threads: " + printableLines(reply.text, 300));
    }
    return threads;
}

std::string stateText(const HotSpotThread& thread) {
    return thread.isOfJvm()
               ? "(jvm)"
               : thread.state +
                     (thread.doing.empty() || thread.state == "BLOCKED" ? "" : ", " + thread.doing);
}

std::string percentText(double percent) {
    return percent < 0 ? "-" : formatPercent(percent);
}

// "waits for pkg.Class of NAME".
std::string waitText(const Threads& threads, const ThreadNow& each) {
    if (each.blocker < 0) {
        return printable(each.thread.topFrame, 100);
    }
    return "waits for " + printable(each.thread.wanted.className, 60) + " of " +
           printable(threads[size_t(each.blocker)].thread.name, 60);
}

// Threads of one pool, in the same state at the same place.
struct Line {
    const ThreadNow* first;
    size_t count = 0;
    double percent = -1;
    int64_t cpuNs = 0;
};

std::vector<Line> linesOf(const Threads& threads, bool isEach) {
    const auto keyOf = [](const ThreadNow& each) {
        return each.pool + '\n' + stateText(each.thread) + '\n' + each.thread.topFrame;
    };
    std::map<std::string, size_t> sizes;
    for (const ThreadNow& each : threads) {
        sizes[keyOf(each)]++;
    }
    std::map<std::string, size_t> indexOf;
    std::vector<Line> lines;
    for (const ThreadNow& each : threads) {
        const bool isAlone = isEach || each.cpuPercent >= BusyPercent || each.blocker >= 0 ||
                             each.blocked > 0 || sizes[keyOf(each)] < SmallestPool;
        size_t at = lines.size();
        if (!isAlone) {
            at = indexOf.try_emplace(keyOf(each), at).first->second;
        }
        if (at == lines.size()) {
            lines.push_back({&each});
        }
        lines[at].count++;
        lines[at].percent = std::max(lines[at].percent, 0.0) + std::max(each.cpuPercent, 0.0);
        lines[at].cpuNs += std::max<int64_t>(each.thread.cpuNs, 0);
        if (each.cpuPercent < 0 && lines[at].count == 1) {
            lines[at].percent = -1;
        }
    }
    return lines;
}

void printBlockers(Console& console, const Threads& threads) {
    std::vector<int> deadlocked;
    for (size_t i = 0; i < threads.size(); i++) {
        const ThreadNow& each = threads[i];
        if (each.isDeadlocked) {
            deadlocked.push_back(int(i));
        }
        if (each.blocked == 0 || each.blocker >= 0) {
            continue; // who is at the end of a chain
        }
        std::string names;
        size_t shown = 0;
        for (size_t other = 0; other < threads.size(); other++) {
            const std::vector<int> chain = chainOf(threads, int(other));
            if (other != i && chain.back() == int(i) && shown++ < ShownBlocked) {
                names += (names.empty() ? "" : ", ") + printable(threads[other].thread.name, 60);
            }
        }
        console.out << "\n"
                    << printable(each.thread.name, 60) << " blocks " << formatCount(each.blocked)
                    << (each.blocked == 1 ? " thread: " : " threads: ") << names
                    << (shown > ShownBlocked ? ", ..." : "") << "\n  it is "
                    << stateText(each.thread) << " in " << printable(each.thread.topFrame, 100)
                    << "\n";
    }
    while (!deadlocked.empty()) {
        const std::vector<int> chain = chainOf(threads, deadlocked.front());
        console.out << "\nDeadlock: ";
        for (const int at : chain) {
            console.out << printable(threads[size_t(at)].thread.name, 60) << " waits for ";
            deadlocked.erase(std::remove(deadlocked.begin(), deadlocked.end(), at),
                             deadlocked.end());
        }
        console.out << printable(threads[size_t(chain.front())].thread.name, 60) << "\n";
    }
}

void print(Console& console, const Threads& threads, bool isEach) {
    TextTable table({{"CPU%", TextTable::Right},
                     {"CPU", TextTable::Right},
                     {"NATIVE", TextTable::Right},
                     {"STATE"},
                     {"NAME"},
                     {"AT"}});
    for (const Line& line : linesOf(threads, isEach)) {
        const HotSpotThread& thread = line.first->thread;
        const bool isPool = line.count > 1;
        table.add({percentText(line.percent), thread.cpuNs < 0 ? "-" : formatNs(line.cpuNs),
                   isPool ? "-" : std::to_string(thread.nativeId), stateText(thread),
                   isPool
                       ? formatCount(int64_t(line.count)) + " of " + printable(line.first->pool, 60)
                       : printable(thread.name, 60),
                   waitText(threads, *line.first)});
    }
    table.print(console);
    printBlockers(console, threads);
}

void writeJson(Console& console, const Jvm& jvm, const Threads& threads, double seconds) {
    JsonDocument json(console, "vdk.threads.now/1");
    json.field("pid", jvm.pid).field("intervalMs", int64_t(seconds * 1000));
    json.key("threads").beginArray();
    for (const ThreadNow& each : threads) {
        const HotSpotThread& thread = each.thread;
        json.beginObject().field("name", thread.name).field("pool", each.pool);
        json.field("nativeId", thread.nativeId).key("cpuPercent");
        each.cpuPercent < 0 ? json.nullValue() : json.value(each.cpuPercent);
        json.key("cpuNs");
        thread.cpuNs < 0 ? json.nullValue() : json.value(thread.cpuNs);
        json.field("state", thread.state).field("doing", thread.doing);
        json.field("topFrame", thread.topFrame).field("waitsFor", thread.wanted.className);
        json.key("blockedBy");
        each.blocker < 0 ? json.nullValue()
                         : json.value(threads[size_t(each.blocker)].thread.nativeId);
        json.field("blocks", each.blocked).field("deadlocked", each.isDeadlocked).endObject();
    }
    json.endArray();
    json.end();
}

} // namespace

int runThreadsNow(Console& console, const Arguments& arguments) {
    Machine machine;
    const Jvm jvm = machine.finder.find(arguments.text("SOURCE"));
    const std::vector<HotSpotThread> before = dump(machine, jvm, arguments);
    const int64_t begin = Platform::monotonicTimeNs();
    sleepUnlessInterrupted(int(arguments.durationMs("--interval", DefaultIntervalMs)));
    throwIfInterrupted();
    // The clocks were read while the dump was made, which is nearer to its end than to its start.
    const std::vector<HotSpotThread> now = dump(machine, jvm, arguments);
    const double seconds = double(Platform::monotonicTimeNs() - begin) / 1e9;
    const Threads threads = threadsNow(before, now, seconds);
    if (console.json) {
        writeJson(console, jvm, threads, seconds);
    } else {
        print(console, threads, arguments.has("--each"));
    }
    return 0;
}

} // namespace vdk
