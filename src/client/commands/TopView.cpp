#include "client/commands/TopView.h"

#include "client/commands/SelectionArguments.h"
#include "client/commands/WhyEmpty.h"
#include "client/console/Screen.h"
#include "client/console/Text.h"
#include "client/profile/ExceptionReport.h"
#include "client/profile/GeneratedNames.h"
#include "client/profile/MonitorReport.h"
#include "platform/Platform.h"

#include <algorithm>
#include <sstream>
#include <unistd.h>

namespace vdk {

namespace {

constexpr size_t ThreadsShown = 5;
constexpr size_t AllocationsShown = 5;
constexpr size_t MethodsShown = 20;
// Lines of a screen beside the head and the methods: titles, blank lines, threads and the line of
// keys.
constexpr size_t OtherLines = 6 + ThreadsShown;
constexpr size_t LinesOfAllocations = 2 + AllocationsShown;
// Characters in front of a name, as a rule.
constexpr size_t WidthOfTimes = 26, WidthOfCalls = 10;

const char Keys[] = "[o]verview [t]hreads [c]pu [a]llocs [g]arbage [l]ive [m]onitors "
                    "[e]xceptions [b]y [s]ort [p]ause [h]elp [q]uit";
const char Help[] = "Keys\n\n"
                    "  o  overview: methods, threads, allocations\n"
                    "  t  threads in place of methods, and back\n"
                    "  c  CPU times, a view of their own      a  allocations\n"
                    "  l  live objects                        g  garbage\n"
                    "  m  waits for monitors and locks        e  exceptions\n"
                    "  b  group such a view in the next way\n"
                    "  s  sort methods by own time, or by the time with what they call\n"
                    "  p  pause: what is on the screen stays, and the next numbers are of all\n"
                    "     the time since then\n"
                    "  h  this help, and back\n"
                    "  q  quit\n";

// Keys of Moment::events.
enum Event { BlockedNs, Exceptions };

void lookAtAllocations(DB& db, const Selection& selection, Moment& moment) {
    Profile profile = makeAllocationProfile(db);
    mergeGeneratedNames(profile);
    select(profile, selection);
    moment.estimated = profile.samplingInterval > 0;
    for (const Charge& charge : profile.charges) {
        const std::string name = allocatedClass(profile, charge.frame);
        moment.allocatedBytes[name] += charge.own;
        moment.allocatedObjects[name] += charge.count;
    }
}

void lookAtTelemetry(DB& db, Moment& moment) {
    db.telemetryTable->eachRecord([&](int, const TelemetryRecord& record) {
        if (record.stamp > 0) { // the newest stands last
            moment.heapUsedBytes = int64_t(record.values[TELE_HEAP_MEMORY_USED_KB]) * 1024;
            moment.liveThreads = record.values[TELE_LIVE_THREAD_COUNT];
        }
    });
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

std::string threadName(const Profile& profile, int trn) {
    for (const ProfileThread& thread : profile.threads) {
        if (thread.trn == trn) {
            return thread.name;
        }
    }
    return "<thread " + std::to_string(trn) + ">";
}

} // namespace

Grouping TopChoices::usualGrouping(Shown what) {
    return what == Shown::Cpu || what == Shown::Monitors ? Grouping::Method : Grouping::Class;
}

void Moment::takeViewsOf(const Moment& later) {
    allocatedBytes = later.allocatedBytes;
    allocatedObjects = later.allocatedObjects;
    shown = later.shown;
    shownNs = later.shownNs;
}

Moment look(DB& db, const TopChoices& choices) {
    Moment moment;
    moment.timeNs = moment.shownNs = Platform::monotonicTimeNs();
    if (choices.show) {
        moment.shown = readEvents(db, *choices.show, true, choices.selection);
    } else if (choices.allocations) {
        lookAtAllocations(db, choices.selection, moment);
    }
    lookAtTelemetry(db, moment);
    moment.profile = makeProfile(db);
    const MonitorUses monitors = readMonitors(db, moment.profile);
    mergeGeneratedNames(moment.profile);
    const StackSelector selector(moment.profile, choices.selection);
    for (const MonitorUse& use : monitors.uses) {
        if (use.kind == WaitKind::Blocked && selector.keeps(use.waiter, use.frame)) {
            moment.events[BlockedNs] += use.timeNs;
        }
    }
    for (const ThrownRow& row : readExceptions(db, moment.profile)) {
        moment.events[Exceptions] += selector.keeps(row.thread, row.throwFrame) ? row.count : 0;
    }
    selector.apply(moment.profile);
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

void TopView::show(const Moment& before, const Moment& now, const TopChoices& chosen,
                   bool keysCount) {
    choices = chosen;
    keys = keysCount;
    compare(before, now);
    if (console.json) {
        writeJson(now);
    } else {
        std::ostringstream text;
        Console page(text, console);
        print(page, now);
        console.outIsTerminal ? putOnScreen(text.str()) : void(console.out << text.str());
    }
    console.out << std::flush;
}

void TopView::compare(const Moment& before, const Moment& now) {
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
    if (choices.byTotal) {
        methods.clear();
        for (const auto& [method, total] : spentInAll) {
            methods.emplace_back(method, timed[method]);
        }
    }
    threads = spent(before.threadOwn, now.threadOwn);
    allocated = spent(before.allocatedBytes, now.allocatedBytes);
    auto objects = spent(before.allocatedObjects, now.allocatedObjects);
    allocatedObjects = NamedSums(objects.begin(), objects.end());
    isEstimated = now.estimated;
    auto happened = spent(before.events, now.events);
    events = Sums(happened.begin(), happened.end());
    sampled = now.profile.sampledCpu().since(before.profile.sampledCpu());
    seconds = double(now.timeNs - before.timeNs) / 1e9;
    whole = 0;
    for (const auto& entry : methods) {
        whole += entry.second;
    }
    if (choices.show) {
        rates = eventRates(before.shown, now.shown, double(now.shownNs - before.shownNs) / 1e9,
                           reportChoices(), !console.json);
    }
}

ReportChoices TopView::reportChoices() const {
    ReportChoices report;
    report.by = choices.by;
    report.filters = choices.filters;
    report.top = choices.top.value_or(console.outIsTerminal && !console.json
                                          ? size_t(screenSize(STDOUT_FILENO).rows)
                                          : MethodsShown);
    return report;
}

void TopView::print(Console& page, const Moment& now) {
    if (choices.withHelp) {
        page.out << Help;
        return;
    }
    const size_t headLines = printHead(page, now);
    size_t lines = choices.top.value_or(MethodsShown), nameWidth = 150;
    const bool withAllocations = choices.allocations && !choices.show;
    if (page.outIsTerminal) {
        ScreenSize screen = screenSize(STDOUT_FILENO);
        size_t taken = WidthOfTimes + (now.profile.hasCounts ? WidthOfCalls : 0) + 3; // "..."
        nameWidth = std::clamp(size_t(screen.columns), taken + 10, taken + nameWidth) - taken;
        if (!choices.top) {
            const size_t other =
                OtherLines + headLines + (withAllocations ? LinesOfAllocations : 0);
            lines = std::clamp(size_t(screen.rows), other + 1, other + lines) - other;
        }
    }
    if (!isMethodTable()) {
        printShown(page, now);
        return;
    }
    if (choices.cpu) {
        printTimes(page, now.profile, lines, nameWidth);
    } else if (choices.show) {
        printShown(page, now);
    }
    if (withAllocations) {
        page.out << (choices.cpu ? "\n" : "");
        printAllocations(page, nameWidth);
    }
}

std::vector<std::string> TopView::headOf(const Moment& now) {
    std::vector<std::string> parts = {
        printable(agent.info.sessionName) + " (" + std::to_string(agent.info.pid) + ")",
        (choices.cpu ? formatNs(whole) + " CPU" : std::string("CPU not sampled")) + " in " +
            formatNs(int64_t(seconds * 1e9))};
    if (choices.isPaused) {
        parts.emplace_back("paused");
    }
    if (sampled.isKnown()) {
        parts.push_back(samplingText(now.profile, sampled));
    }
    if (now.heapUsedBytes >= 0) {
        parts.push_back("heap " + formatBytes(now.heapUsedBytes));
        parts.push_back("threads " + std::to_string(now.liveThreads));
    }
    if (events.count(BlockedNs)) {
        parts.push_back("blocked " + formatNs(events[BlockedNs]));
    }
    if (events.count(Exceptions)) {
        parts.push_back("exceptions " + formatCount(events[Exceptions]));
    }
    return parts;
}

// On a terminal what does not fit goes on in another line. Returns how many there are.
size_t TopView::printHead(Console& page, const Moment& now) {
    const size_t columns =
        page.outIsTerminal ? size_t(screenSize(STDOUT_FILENO).columns) : SIZE_MAX;
    size_t lines = 0, used = columns;
    for (const std::string& part : headOf(now)) {
        const size_t width = displayWidth(part);
        const bool fits = lines > 0 && width + 2 <= columns - used;
        page.out << (fits ? "  " : lines > 0 ? "\n" : "") << part;
        used = fits ? used + 2 + width : std::min(width, columns);
        lines += fits ? 0 : 1;
    }
    page.out << "\n\n";
    return lines;
}

void TopView::printShown(Console& page, const Moment& now) {
    if (now.shown.rows.empty()) {
        page.out << capitalized(whyEmpty(*choices.show, source, now.shown.isKnown)) << "\n";
        return;
    }
    printRates(page, now.shown, rates, reportChoices());
}

// As much of it as there is room for; a line that wraps would push others off.
void TopView::putOnScreen(const std::string& text) {
    const ScreenSize screen = screenSize(STDOUT_FILENO);
    const size_t columns = size_t(screen.columns);
    std::vector<std::string> lines = split(text, '\n');
    lines.resize(std::min(lines.size(), size_t(std::max(screen.rows - 1, 1))));
    console.out << Screen::Home;
    for (const std::string& line : lines) {
        const bool isStyled = line.find('\033') != std::string::npos; // a short title
        console.out << (isStyled ? line : fitted(line, columns)) << "\n";
    }
    if (keys) {
        console.out << "\033[" << screen.rows << ";1H"
                    << console.styled(fitted(Keys, columns), "2");
    }
}

void TopView::printTimes(Console& page, const Profile& profile, size_t lines, size_t nameWidth) {
    if (choices.threadsOnly) {
        printThreads(page, profile, lines + ThreadsShown, nameWidth);
        return;
    }
    printMethods(page, profile, lines, nameWidth);
    printThreads(page, profile, ThreadsShown, nameWidth);
}

void TopView::printMethods(Console& page, const Profile& profile, size_t lines, size_t nameWidth) {
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
    table.print(page);
    page.out << "\n";
}

void TopView::printThreads(Console& page, const Profile& profile, size_t most, size_t nameWidth) {
    TextTable threadTable({{"CPU%", TextTable::Right}, {"CPU", TextTable::Right}, {"THREAD"}});
    for (size_t i = 0; i < std::min(most, threads.size()); i++) {
        threadTable.add({formatPercent(percentOf(threads[i].second, int64_t(seconds * 1e9))),
                         formatNs(threads[i].second),
                         printable(threadName(profile, threads[i].first), nameWidth)});
    }
    threadTable.print(page);
}

void TopView::printAllocations(Console& page, size_t nameWidth) {
    const auto perSecond = [&](int64_t sum) { return int64_t(double(sum) / seconds); };
    TextTable table({{"BYTES/S", TextTable::Right},
                     {"OBJECTS/S", TextTable::Right},
                     {isEstimated ? "ALLOCATED (ESTIMATES), BY CLASS" : "ALLOCATED, BY CLASS"}});
    for (size_t i = 0; i < std::min(AllocationsShown, allocated.size()); i++) {
        const auto& [name, bytes] = allocated[i];
        table.add({formatBytes(perSecond(bytes)), formatCount(perSecond(allocatedObjects[name])),
                   printable(name, nameWidth)});
    }
    table.print(page);
}

void TopView::writeAllocations(JsonWriter& json) {
    json.key("allocations").beginObject().field("estimated", isEstimated).field("by", "class");
    json.key("groups").beginArray();
    for (size_t i = 0; i < std::min(choices.top.value_or(MethodsShown), allocated.size()); i++) {
        const auto& [name, bytes] = allocated[i];
        json.beginObject().field("class", name).field("bytes", bytes);
        json.field("objects", allocatedObjects[name]).endObject();
    }
    json.endArray().endObject();
}

void TopView::writeMethods(JsonWriter& json, const Profile& profile) {
    json.key("methods").beginArray();
    for (size_t i = 0; i < std::min(choices.top.value_or(MethodsShown), methods.size()); i++) {
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
        json.beginObject().field("trn", trn).field("name", threadName(profile, trn));
        json.field("ownNs", ns).endObject();
    }
    json.endArray();
}

void TopView::writeShown(JsonWriter& json, const Moment& now) {
    json.key("view").beginObject().field("show", nameOf(*choices.show).option);
    if (now.shown.profile.measure->isOfObjects()) {
        writeEstimate(json, now.shown.profile);
    }
    writeRates(json, now.shown, rates, reportChoices());
    json.endObject();
}

void TopView::writeJson(const Moment& now) {
    JsonDocument json(console, "vdk.top/1", false);
    json.field("pid", agent.info.pid);
    json.field("session", agent.info.sessionName);
    json.field("intervalNs", int64_t(seconds * 1e9)).field("totalNs", whole);
    writeSampled(json, sampled);
    writeSampler(json, now.profile);
    if (now.heapUsedBytes >= 0) {
        json.field("heapUsedBytes", now.heapUsedBytes).field("liveThreads", now.liveThreads);
    }
    json.field("blockedNs", events[BlockedNs]).field("exceptions", events[Exceptions]);
    if (choices.allocations && !choices.show) {
        writeAllocations(json);
    }
    if (isMethodTable()) {
        writeMethods(json, now.profile);
    }
    if (choices.show) {
        writeShown(json, now);
    }
    json.end();
}

} // namespace vdk
