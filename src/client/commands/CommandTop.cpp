#include "client/agent/Protocol.h"
#include "client/commands/Commands.h"
#include "client/commands/Sources.h"
#include "client/console/Screen.h"
#include "client/console/Signals.h"
#include "client/console/Text.h"
#include "client/profile/ExceptionReport.h"
#include "client/profile/GeneratedNames.h"
#include "client/profile/MonitorReport.h"
#include "client/profile/Report.h"
#include "platform/Platform.h"

#include <algorithm>
#include <map>
#include <optional>
#include <unistd.h>

namespace vdk {

namespace {

constexpr int TopTables = CpuTables | MonitorTables | ExceptionTables | 1 << SLOT_Telemetry;
constexpr size_t ThreadsShown = 5;
constexpr size_t AllocationsShown = 5;
constexpr size_t MethodsShown = 20;
// Lines of a screen beside the methods: the head, titles, blank lines, threads and the cursor's
// line.
constexpr size_t OtherLines = 6 + ThreadsShown;
constexpr size_t LinesOfAllocations = 2 + AllocationsShown;
// Characters in front of a name, as a rule.
constexpr size_t WidthOfTimes = 26, WidthOfCalls = 10;

// Times or numbers of calls by key at one moment; what was spent since the last moment is the
// difference.
using Sums = std::map<int, int64_t>;

// Keys of Moment::events.
enum Event { BlockedNs, Exceptions };

// By name of a class or method.
using NamedSums = std::map<std::string, int64_t>;

struct Moment {
    Profile profile;
    Sums methodOwn, methodTotal, methodCalls, threadOwn, events;
    NamedSums allocatedBytes, allocatedObjects;
    bool estimated = false; // the allocations
};

// What is looked at.
struct TopChoices {
    bool filters = false;
    bool cpu = false;             // it is sampled or traced
    bool allocations = false;     // they are recorded
    bool allocatedByClass = true; // else by method
};

void lookAtAllocations(DB& db, const TopChoices& choices, Moment& moment) {
    Profile profile = makeAllocationProfile(db);
    mergeGeneratedNames(profile);
    moment.estimated = profile.samplingInterval > 0;
    for (const Charge& charge : profile.charges) {
        const int frame = shownFrame(profile, allocatingFrame(profile, charge.frame));
        const std::string name =
            choices.allocatedByClass
                ? allocatedClass(profile, charge.frame)
                : methodName(profile, profile.frames[size_t(frame)].method, false);
        moment.allocatedBytes[name] += charge.own;
        moment.allocatedObjects[name] += charge.count;
    }
}

Moment look(DB& db, const TopChoices& choices) {
    Moment moment;
    if (choices.allocations) {
        lookAtAllocations(db, choices, moment);
    }
    moment.profile = makeProfile(db);
    for (const MonitorUse& use : readMonitors(db, moment.profile).uses) {
        moment.events[BlockedNs] += use.kind == WaitKind::Blocked ? use.timeNs : 0;
    }
    for (const ThrownRow& row : readExceptions(db, moment.profile)) {
        moment.events[Exceptions] += row.count;
    }
    mergeGeneratedNames(moment.profile);
    for (const HotMethod& method :
         hotMethods(makeCallTree(moment.profile, {choices.filters, -1}))) {
        moment.methodOwn[method.method] = method.own;
        moment.methodTotal[method.method] = method.total;
        moment.methodCalls[method.method] = method.count;
    }
    for (const ThreadTime& time : threadTimes(moment.profile)) {
        moment.threadOwn[moment.profile.threads[size_t(time.thread)].trn] += time.own;
    }
    return moment;
}

// What was spent between two moments, largest first. Data that was cleared in between counts from
// nothing.
template <typename Key>
std::vector<std::pair<Key, int64_t>> spent(const std::map<Key, int64_t>& before,
                                           const std::map<Key, int64_t>& now) {
    std::vector<std::pair<Key, int64_t>> result;
    for (const auto& [key, sum] : now) {
        auto old = before.find(key);
        int64_t delta = old == before.end() || old->second > sum ? sum : sum - old->second;
        if (delta > 0) {
            result.emplace_back(key, delta);
        }
    }
    std::stable_sort(result.begin(), result.end(),
                     [](const auto& a, const auto& b) { return a.second > b.second; });
    return result;
}

// The newest row of telemetry; null if there is none.
const TelemetryRecord* lastTelemetry(DB& db) {
    const TelemetryRecord* last = nullptr;
    db.telemetryTable->eachRecord([&](int, const TelemetryRecord& record) {
        if (record.stamp > 0) {
            last = &record;
        }
    });
    return last;
}

std::string threadName(const Profile& profile, int trn) {
    for (const ProfileThread& thread : profile.threads) {
        if (thread.trn == trn) {
            return thread.name;
        }
    }
    return "<thread " + std::to_string(trn) + ">";
}

class TopView {
public:
    TopView(Console& console, const LiveAgent& agent, const Arguments& arguments,
            const TopChoices& choices)
        : console(console), agent(agent), choices(choices),
          top(size_t(arguments.number("--top", MethodsShown))), topIsGiven(arguments.has("--top")) {
    }

    void show(const Moment& before, const Moment& now, const TelemetryRecord* telemetry,
              double seconds) {
        methods = spent(before.methodOwn, now.methodOwn);
        auto called = spent(before.methodCalls, now.methodCalls);
        calls = Sums(called.begin(), called.end());
        Sums timed(methods.begin(), methods.end());
        for (const auto& entry : called) {
            if (!timed.count(entry.first)) {
                methods.emplace_back(entry.first, 0); // called, in no time that can be measured
            }
        }
        auto spentInAll = spent(before.methodTotal, now.methodTotal);
        totals = Sums(spentInAll.begin(), spentInAll.end());
        threads = spent(before.threadOwn, now.threadOwn);
        allocated = spent(before.allocatedBytes, now.allocatedBytes);
        auto objects = spent(before.allocatedObjects, now.allocatedObjects);
        allocatedObjects = NamedSums(objects.begin(), objects.end());
        estimated = now.estimated;
        auto happened = spent(before.events, now.events);
        events = Sums(happened.begin(), happened.end());
        sampled = now.profile.sampledCpu().since(before.profile.sampledCpu());
        whole = 0;
        for (const auto& entry : methods) {
            whole += entry.second;
        }
        console.json ? writeJson(now.profile, telemetry, seconds)
                     : print(now.profile, telemetry, seconds);
        console.out << std::flush;
    }

private:
    void print(const Profile& profile, const TelemetryRecord* telemetry, double seconds) {
        size_t lines = top, nameWidth = 150;
        if (console.outIsTerminal) {
            console.out << Screen::Home;
            ScreenSize screen = screenSize(STDOUT_FILENO);
            size_t taken = WidthOfTimes + (profile.hasCounts ? WidthOfCalls : 0) + 3; // "..."
            nameWidth = std::clamp(size_t(screen.columns), taken + 10, taken + nameWidth) - taken;
            if (!topIsGiven) {
                const size_t other = OtherLines + (choices.allocations ? LinesOfAllocations : 0);
                lines = std::clamp(size_t(screen.rows), other + 1, other + top) - other;
            }
        }
        console.out << printable(agent.info.sessionName) << " (" << agent.info.pid << ")  "
                    << (choices.cpu ? formatNs(whole) + " CPU" : "CPU not sampled") << " in "
                    << formatNs(int64_t(seconds * 1e9));
        if (sampled.isKnown()) {
            console.out << "  " << sampledText(sampled);
        }
        if (telemetry) {
            console.out << "  heap "
                        << formatBytes(int64_t(telemetry->values[TELE_HEAP_MEMORY_USED_KB]) * 1024)
                        << "  threads " << telemetry->values[TELE_LIVE_THREAD_COUNT];
        }
        if (events.count(BlockedNs)) {
            console.out << "  blocked " << formatNs(events[BlockedNs]);
        }
        if (events.count(Exceptions)) {
            console.out << "  exceptions " << events[Exceptions];
        }
        console.out << "\n\n";
        if (choices.cpu) {
            printMethods(profile, lines, nameWidth);
            printThreads(profile, seconds, nameWidth);
        }
        if (choices.allocations) {
            console.out << (choices.cpu ? "\n" : "");
            printAllocations(seconds, nameWidth);
        }
    }

    void printMethods(const Profile& profile, size_t lines, size_t nameWidth) {
        std::vector<TextTable::Column> columns = {
            {"OWN%", TextTable::Right}, {"OWN", TextTable::Right}, {"TOTAL%", TextTable::Right}};
        if (profile.hasCounts) {
            columns.push_back({"CALLS", TextTable::Right});
        }
        columns.push_back({"METHOD"});
        TextTable table(columns);
        for (size_t i = 0; i < std::min(lines, methods.size()); i++) {
            const auto& [method, ns] = methods[i];
            std::vector<std::string> cells = {formatPercent(percentOf(ns, whole)), formatNs(ns),
                                              formatPercent(percentOf(totals[method], whole))};
            if (profile.hasCounts) {
                cells.push_back(formatCount(calls[method]));
            }
            cells.push_back(printable(methodName(profile, method, false), nameWidth));
            table.add(cells);
        }
        table.print(console);
        console.out << "\n";
    }

    void printThreads(const Profile& profile, double seconds, size_t nameWidth) {
        TextTable threadTable({{"CPU%", TextTable::Right}, {"CPU", TextTable::Right}, {"THREAD"}});
        for (size_t i = 0; i < std::min(ThreadsShown, threads.size()); i++) {
            threadTable.add({formatPercent(percentOf(threads[i].second, int64_t(seconds * 1e9))),
                             formatNs(threads[i].second),
                             printable(threadName(profile, threads[i].first), nameWidth)});
        }
        threadTable.print(console);
    }

    void printAllocations(double seconds, size_t nameWidth) {
        const auto perSecond = [&](int64_t sum) { return int64_t(double(sum) / seconds); };
        TextTable table({{"BYTES/S", TextTable::Right},
                         {"OBJECTS/S", TextTable::Right},
                         {std::string(estimated ? "ALLOCATED (ESTIMATES), BY " : "ALLOCATED, BY ") +
                          (choices.allocatedByClass ? "CLASS" : "METHOD")}});
        for (size_t i = 0; i < std::min(AllocationsShown, allocated.size()); i++) {
            const auto& [name, bytes] = allocated[i];
            table.add({formatBytes(perSecond(bytes)),
                       formatCount(perSecond(allocatedObjects[name])), printable(name, nameWidth)});
        }
        table.print(console);
    }

    void writeAllocations(JsonWriter& json) {
        const char* by = choices.allocatedByClass ? "class" : "method";
        json.key("allocations").beginObject().field("estimated", estimated).field("by", by);
        json.key("groups").beginArray();
        for (size_t i = 0; i < std::min(top, allocated.size()); i++) {
            const auto& [name, bytes] = allocated[i];
            json.beginObject().field(by, name).field("bytes", bytes);
            json.field("objects", allocatedObjects[name]).endObject();
        }
        json.endArray().endObject();
    }

    void writeJson(const Profile& profile, const TelemetryRecord* telemetry, double seconds) {
        JsonWriter json(console.out, false);
        beginDocument(json, "vdk.top/1").field("pid", agent.info.pid);
        json.field("session", agent.info.sessionName);
        json.field("intervalNs", int64_t(seconds * 1e9)).field("totalNs", whole);
        writeSampled(json, sampled);
        if (telemetry) {
            json.field("heapUsedBytes", int64_t(telemetry->values[TELE_HEAP_MEMORY_USED_KB]) * 1024)
                .field("liveThreads", telemetry->values[TELE_LIVE_THREAD_COUNT]);
        }
        json.field("blockedNs", events[BlockedNs]).field("exceptions", events[Exceptions]);
        if (choices.allocations) {
            writeAllocations(json);
        }
        json.key("methods").beginArray();
        for (size_t i = 0; i < std::min(top, methods.size()); i++) {
            const auto& [method, ns] = methods[i];
            json.beginObject().field("name", methodName(profile, method, false));
            json.field("ownNs", ns).field("totalNs", totals[method]);
            json.field("ownPercent", percentOf(ns, whole));
            if (profile.hasCounts) {
                json.field("calls", calls[method]);
            }
            json.endObject();
        }
        json.endArray().key("threads").beginArray();
        for (const auto& [trn, ns] : threads) {
            json.beginObject()
                .field("trn", trn)
                .field("name", threadName(profile, trn))
                .field("ownNs", ns)
                .endObject();
        }
        json.endArray().endObject();
        console.out << "\n";
    }

    Console& console;
    const LiveAgent& agent;
    const TopChoices choices;
    size_t top;
    bool topIsGiven;
    std::vector<std::pair<int, int64_t>> methods, threads;
    std::vector<std::pair<std::string, int64_t>> allocated;
    NamedSums allocatedObjects;
    bool estimated = false;
    Sums totals, calls, events;
    int64_t whole = 0;
    SampledCpu sampled;
};

// Stops the sampling that this command started, however it ends.
class SamplingGuard {
public:
    SamplingGuard(LiveAgent& agent, bool start) : agent(agent), started(start) {
        if (started) {
            agent.client.startCpuProfiling(protocol::CPU_SAMPLING, std::nullopt, std::nullopt);
        }
    }
    ~SamplingGuard() {
        if (!started) {
            return;
        }
        try {
            forgetInterrupt();
            agent.client.stopCpuProfiling();
        } catch (const ClientError&) {
            // The JVM may be gone; there is nothing left to stop then.
        }
    }
    SamplingGuard(const SamplingGuard&) = delete;
    SamplingGuard& operator=(const SamplingGuard&) = delete;

private:
    LiveAgent& agent;
    bool started;
};

} // namespace

int runTop(Console& console, const Arguments& arguments) {
    LiveAgent agent = connectAgent(arguments.text("TARGET"), arguments);
    bool running = (agent.status & protocol::CPU_TIMES_BIT) != 0;
    TopChoices choices;
    choices.allocations = (agent.status & protocol::ALLOCATION_RECORDING_BIT) != 0;
    choices.allocatedByClass = arguments.text("--allocations", "class") == "class";
    choices.cpu = running || arguments.has("--sample");
    choices.filters = arguments.text("--filters") == "on";
    if (arguments.has("--allocations") && !choices.allocations) {
        throw ClientError(ExitCode::Refused, "alloc.off", "allocations are not recorded",
                          "`vdk alloc start " + arguments.text("TARGET") + " --sampled`");
    }
    if (!choices.cpu && !choices.allocations) {
        throw ClientError(ExitCode::Refused, "cpu.off", "CPU sampling is off",
                          "`vdk sample start " + arguments.text("TARGET") +
                              "`, or `vdk top --sample`");
    }
    SamplingGuard guard(agent, choices.cpu && !running);
    const int tables = TopTables | (choices.allocations ? AllocationTables : 0);
    long intervalMs = std::max(arguments.durationMs("--interval", 2000), 100L);
    bool endless = console.outIsTerminal && !arguments.has("--count");
    long left = arguments.number("--count", 1);
    TableFetcher fetcher(agent.client);
    fetcher.follow(SampledCpuTable);
    fetcher.fetch(tables);
    Moment before = look(fetcher.database(), choices);
    TopView view(console, agent, arguments, choices);
    long startNs = Platform::monotonicTimeNs();
    // Who reads the output may have closed it.
    Screen screen(console, endless);
    if (screen.isOn()) {
        console.out << Screen::Home << printable(agent.info.sessionName)
                    << ": the first numbers come in " << formatLimit(int(intervalMs))
                    << "; q ends\n"
                    << std::flush;
    }
    while (console.out && (endless || left-- > 0) && screen.waitForNext(intervalMs)) {
        fetcher.fetch(tables);
        long nowNs = Platform::monotonicTimeNs();
        double seconds = double(nowNs - startNs) / 1e9;
        startNs = nowNs;
        Moment moment = look(fetcher.database(), choices);
        view.show(before, moment, lastTelemetry(fetcher.database()), seconds);
        before = std::move(moment);
    }
    return 0;
}

} // namespace vdk
