#include "client/commands/TopView.h"

#include "client/commands/WhyEmpty.h"
#include "client/console/Screen.h"
#include "client/console/Text.h"

#include <algorithm>
#include <sstream>
#include <unistd.h>

namespace vdk {

namespace {

constexpr size_t ThreadsShown = 5;
constexpr size_t AllocationsShown = 5;
constexpr size_t JvmsShown = 8;
constexpr size_t MethodsShown = 20;
// Lines of a screen beside the head and the methods: titles, blank lines, threads and the line of
// keys.
constexpr size_t OtherLines = 6 + ThreadsShown;
constexpr size_t LinesOfAllocations = 2 + AllocationsShown;
// Characters in front of a name, as a rule.
constexpr size_t WidthOfTimes = 26, WidthOfCalls = 10;

const char Keys[] = "[o]verview [t]hreads [c]pu [a]llocs [g]arbage [l]ive [m]onitors "
                    "[e]xceptions [b]y [s]ort [p]ause [h]elp [q]uit";
const char KeyOfMany[] = "[j]vm ";
const char HelpOfMany[] = "  j  one JVM after the other, and all again\n";
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

std::string threadName(const Profile& profile, int trn) {
    for (const ProfileThread& thread : profile.threads) {
        if (thread.trn == trn) {
            return thread.name;
        }
    }
    return "<thread " + std::to_string(trn) + ">";
}

std::string labelOf(const AgentInfo& info) {
    return printable(info.sessionName) + " (" + std::to_string(info.pid) + ")";
}

const char* nameOf(JvmState state) {
    static const char* names[] = {"up", "no answer", "gone"};
    return names[int(state)];
}

} // namespace

void TopView::show(const std::vector<TopSubject>& toShow, const TopChoices& chosen,
                   bool keysCount) {
    choices = chosen;
    keys = keysCount;
    subjects = &toShow;
    parts.clear();
    whole = 0;
    for (const TopSubject& subject : toShow) {
        if (subject.now && subject.state == JvmState::Up) {
            parts.push_back({subject, isOfOne() ? "" : labelOf(subject.info),
                             TopInterval(*subject.before, *subject.now, choices, reportChoices(),
                                         !console.json)});
            whole += parts.back().interval.whole;
        }
    }
    if (console.json) {
        writeJson();
    } else {
        std::ostringstream text;
        Console page(text, console);
        print(page);
        console.outIsTerminal ? putOnScreen(text.str()) : void(console.out << text.str());
    }
    console.out << std::flush;
    parts.clear();
    subjects = nullptr;
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

bool TopView::hasCounts() const {
    return std::any_of(parts.begin(), parts.end(),
                       [](const Part& part) { return part.subject.now->profile.hasCounts; });
}

// They are asked together, and their intervals are about the same.
double TopView::seconds() const {
    double longest = 0;
    for (const Part& part : parts) {
        longest = std::max(longest, part.interval.seconds);
    }
    return longest;
}

// Of the lists that `list` gives of an interval, as one.
template <typename List, typename Weight>
std::vector<TopView::Line> TopView::heaviestLines(List list, size_t most, Weight weight) const {
    std::vector<Line> lines;
    for (const Part& part : parts) {
        const auto& all = part.interval.*list;
        for (size_t i = 0; i < std::min(most, all.size()); i++) {
            lines.push_back({&part, i, weight(part.interval, all[i])});
        }
    }
    std::stable_sort(lines.begin(), lines.end(),
                     [](const Line& a, const Line& b) { return a.weight > b.weight; });
    lines.resize(std::min(lines.size(), most));
    return lines;
}

std::vector<TextTable::Column> TopView::withJvm(std::vector<TextTable::Column> columns) const {
    if (!isOfOne()) {
        columns.insert(columns.end() - 1, {"JVM"});
    }
    return columns;
}

std::vector<std::string> TopView::withJvm(const Part& part, std::vector<std::string> cells) const {
    if (!isOfOne()) {
        cells.insert(cells.end() - 1, part.jvm);
    }
    return cells;
}

void TopView::print(Console& page) {
    if (choices.withHelp) {
        page.out << Help << (isOfMany ? HelpOfMany : "");
        return;
    }
    const size_t headLines = printHead(page);
    size_t lines = choices.top.value_or(MethodsShown), nameWidth = 150;
    const bool withAllocations = choices.allocations && !choices.show;
    if (page.outIsTerminal) {
        ScreenSize screen = screenSize(STDOUT_FILENO);
        size_t taken = WidthOfTimes + (hasCounts() ? WidthOfCalls : 0) + 3; // "..."
        nameWidth = std::clamp(size_t(screen.columns), taken + 10, taken + nameWidth) - taken;
        if (!choices.top) {
            const size_t other =
                OtherLines + headLines + (withAllocations ? LinesOfAllocations : 0);
            lines = std::clamp(size_t(screen.rows), other + 1, other + lines) - other;
        }
    }
    if (parts.empty()) {
        return; // the head has told why
    }
    if (!isMethodTable()) {
        printShown(page);
        return;
    }
    if (choices.cpu) {
        printTimes(page, lines, nameWidth);
    } else if (choices.show) {
        printShown(page);
    }
    if (withAllocations) {
        page.out << (choices.cpu ? "\n" : "");
        printAllocations(page, nameWidth);
    }
}

std::vector<std::string> TopView::headOfOne(const TopSubject& subject) const {
    std::vector<std::string> rest = {labelOf(subject.info)};
    if (parts.empty()) {
        rest.emplace_back(subject.state == JvmState::Up ? "no numbers yet" : nameOf(subject.state));
        return rest;
    }
    const TopInterval& interval = parts[0].interval;
    const Moment& now = *subject.now;
    rest.push_back((choices.cpu ? formatNs(whole) + " CPU" : std::string("CPU not sampled")) +
                   " in " + formatNs(int64_t(interval.seconds * 1e9)));
    if (choices.isPaused) {
        rest.emplace_back("paused");
    }
    if (interval.sampled.isKnown()) {
        rest.push_back(samplingText(now.profile, interval.sampled));
    }
    if (now.heapUsedBytes >= 0) {
        rest.push_back("heap " + formatBytes(now.heapUsedBytes));
        rest.push_back("threads " + std::to_string(now.liveThreads));
    }
    if (interval.events.count(TopInterval::BlockedNs)) {
        rest.push_back("blocked " + formatNs(interval.event(TopInterval::BlockedNs)));
    }
    if (interval.events.count(TopInterval::Exceptions)) {
        rest.push_back("exceptions " + formatCount(interval.event(TopInterval::Exceptions)));
    }
    return rest;
}

std::vector<std::string> TopView::headOf() const {
    if (isOfOne()) {
        return headOfOne(subjects->front());
    }
    std::vector<std::string> head = {
        std::to_string(subjects->size()) + " JVMs",
        (choices.cpu ? formatNs(whole) + " CPU" : std::string("CPU not sampled")) + " in " +
            formatNs(int64_t(seconds() * 1e9))};
    if (choices.isPaused) {
        head.emplace_back("paused");
    }
    return head;
}

// On a terminal what does not fit goes on in another line. Returns how many there are.
size_t TopView::printHead(Console& page) {
    const size_t columns =
        page.outIsTerminal ? size_t(screenSize(STDOUT_FILENO).columns) : SIZE_MAX;
    size_t lines = 0, used = columns;
    for (const std::string& part : headOf()) {
        const size_t width = displayWidth(part);
        const bool fits = lines > 0 && width + 2 <= columns - used;
        page.out << (fits ? "  " : lines > 0 ? "\n" : "") << part;
        used = fits ? used + 2 + width : std::min(width, columns);
        lines += fits ? 0 : 1;
    }
    page.out << "\n\n";
    return lines + (isOfOne() ? 0 : printJvms(page));
}

const TopView::Part* TopView::partOf(const TopSubject& subject) const {
    const auto found = std::find_if(parts.begin(), parts.end(),
                                    [&](const Part& part) { return &part.subject == &subject; });
    return found == parts.end() ? nullptr : &*found;
}

// A line for each JVM, the busiest first, those without numbers last.
size_t TopView::printJvms(Console& page) {
    std::vector<std::pair<const TopSubject*, const Part*>> rows;
    for (const TopSubject& subject : *subjects) {
        rows.emplace_back(&subject, partOf(subject));
    }
    std::stable_sort(rows.begin(), rows.end(), [](const auto& a, const auto& b) {
        const auto weight = [](const Part* part) { return part ? part->interval.whole : -1; };
        return weight(a.second) > weight(b.second);
    });
    const size_t most = page.outIsTerminal ? JvmsShown : rows.size();
    TextTable table({{"CPU%", TextTable::Right},
                     {"CPU", TextTable::Right},
                     {"HEAP", TextTable::Right},
                     {"THREADS", TextTable::Right},
                     {"BLOCKED", TextTable::Right},
                     {"EXCEPTIONS", TextTable::Right},
                     {"STATE"},
                     {"JVM"}});
    for (size_t i = 0; i < std::min(most, rows.size()); i++) {
        const auto& [subject, part] = rows[i];
        std::vector<std::string> cells(6, "-");
        if (part) {
            const TopInterval& interval = part->interval;
            const Moment& now = *subject->now;
            const bool hasMemory = now.heapUsedBytes >= 0;
            cells = {formatPercent(percentOf(interval.whole, int64_t(interval.seconds * 1e9))),
                     formatNs(interval.whole),
                     hasMemory ? formatBytes(now.heapUsedBytes) : "-",
                     hasMemory ? std::to_string(now.liveThreads) : "-",
                     formatNs(interval.event(TopInterval::BlockedNs)),
                     formatCount(interval.event(TopInterval::Exceptions))};
        }
        cells.emplace_back(subject->state == JvmState::Up && !part ? "new"
                                                                   : nameOf(subject->state));
        cells.push_back(labelOf(subject->info));
        table.add(cells);
    }
    table.print(page);
    const size_t hidden = rows.size() - std::min(most, rows.size());
    if (hidden > 0) {
        page.out << "and " << hidden << " more\n";
    }
    page.out << "\n";
    return std::min(most, rows.size()) + (hidden > 0 ? 3 : 2);
}

void TopView::printShown(Console& page) {
    std::vector<JvmRates> rates;
    for (const Part& part : parts) {
        if (!part.subject.now->shown.rows.empty()) {
            rates.push_back({part.jvm, part.subject.now->shown, part.interval.rates});
        }
    }
    if (rates.empty()) {
        const TopSubject& first = parts[0].subject;
        page.out << capitalized(whyEmpty(*choices.show, first.source, first.now->shown.isKnown))
                 << "\n";
        return;
    }
    printRates(page, rates, reportChoices());
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
                    << console.styled(
                           fitted(std::string(isOfMany ? KeyOfMany : "") + Keys, columns), "2");
    }
}

void TopView::printTimes(Console& page, size_t lines, size_t nameWidth) {
    if (choices.threadsOnly) {
        printThreads(page, lines + ThreadsShown, nameWidth);
        return;
    }
    printMethods(page, lines, nameWidth);
    printThreads(page, ThreadsShown, nameWidth);
}

void TopView::printMethods(Console& page, size_t lines, size_t nameWidth) {
    const auto valueIn = [](const Sums& sums, int method) {
        const auto found = sums.find(method);
        return found == sums.end() ? 0 : found->second;
    };
    std::vector<TextTable::Column> columns = {
        {"OWN%", TextTable::Right}, {"OWN", TextTable::Right}, {"TOTAL%", TextTable::Right}};
    const bool withCounts = hasCounts();
    if (withCounts) {
        columns.push_back({"CALLS", TextTable::Right});
    }
    columns.push_back({"METHOD"});
    TextTable table(withJvm(columns));
    const auto weight = [&](const TopInterval& interval, const std::pair<int, int64_t>& method) {
        return choices.byTotal ? valueIn(interval.totals, method.first) : method.second;
    };
    for (const Line& line : heaviestLines(&TopInterval::methods, lines, weight)) {
        const TopInterval& interval = line.part->interval;
        const auto& [method, ns] = interval.methods[line.index];
        std::vector<std::string> cells = {
            formatPercent(percentOf(ns, whole)), formatNs(ns),
            formatPercent(percentOf(valueIn(interval.totals, method), whole))};
        if (withCounts) {
            cells.push_back(formatCount(valueIn(interval.calls, method)));
        }
        cells.push_back(
            printable(methodName(line.part->subject.now->profile, method, false), nameWidth));
        table.add(withJvm(*line.part, cells));
    }
    table.print(page);
    page.out << "\n";
}

void TopView::printThreads(Console& page, size_t most, size_t nameWidth) {
    TextTable table(withJvm({{"CPU%", TextTable::Right}, {"CPU", TextTable::Right}, {"THREAD"}}));
    const auto weight = [](const TopInterval&, const auto& thread) { return thread.second; };
    for (const Line& line : heaviestLines(&TopInterval::threads, most, weight)) {
        const TopInterval& interval = line.part->interval;
        const auto& [trn, ns] = interval.threads[line.index];
        table.add(
            withJvm(*line.part,
                    {formatPercent(percentOf(ns, int64_t(interval.seconds * 1e9))), formatNs(ns),
                     printable(threadName(line.part->subject.now->profile, trn), nameWidth)}));
    }
    table.print(page);
}

void TopView::printAllocations(Console& page, size_t nameWidth) {
    const bool isEstimated = std::any_of(
        parts.begin(), parts.end(), [](const Part& part) { return part.interval.isEstimated; });
    TextTable table(
        withJvm({{"BYTES/S", TextTable::Right},
                 {"OBJECTS/S", TextTable::Right},
                 {isEstimated ? "ALLOCATED (ESTIMATES), BY CLASS" : "ALLOCATED, BY CLASS"}}));
    const auto weight = [](const TopInterval&, const auto& allocated) { return allocated.second; };
    for (const Line& line : heaviestLines(&TopInterval::allocated, AllocationsShown, weight)) {
        const TopInterval& interval = line.part->interval;
        const auto perSecond = [&](int64_t sum) { return int64_t(double(sum) / interval.seconds); };
        const auto& [name, bytes] = interval.allocated[line.index];
        table.add(withJvm(*line.part, {formatBytes(perSecond(bytes)),
                                       formatCount(perSecond(interval.allocatedObjects.at(name))),
                                       printable(name, nameWidth)}));
    }
    table.print(page);
}

void TopView::writeAllocations(JsonWriter& json, const TopInterval& interval) {
    const auto& allocated = interval.allocated;
    json.key("allocations")
        .beginObject()
        .field("estimated", interval.isEstimated)
        .field("by", "class");
    json.key("groups").beginArray();
    for (size_t i = 0; i < std::min(choices.top.value_or(MethodsShown), allocated.size()); i++) {
        const auto& [name, bytes] = allocated[i];
        json.beginObject().field("class", name).field("bytes", bytes);
        json.field("objects", interval.allocatedObjects.at(name)).endObject();
    }
    json.endArray().endObject();
}

void TopView::writeMethods(JsonWriter& json, const TopInterval& interval, const Profile& profile) {
    Sums totals = interval.totals, calls = interval.calls;
    const auto& methods = interval.methods;
    json.key("methods").beginArray();
    for (size_t i = 0; i < std::min(choices.top.value_or(MethodsShown), methods.size()); i++) {
        const auto& [method, ns] = methods[i];
        json.beginObject().field("name", methodName(profile, method, false));
        json.field("ownNs", ns).field("totalNs", totals[method]);
        json.field("ownPercent", percentOf(ns, interval.whole));
        if (profile.hasCounts) {
            json.field("calls", calls[method]);
        }
        json.endObject();
    }
    json.endArray().key("threads").beginArray();
    for (const auto& [trn, ns] : interval.threads) {
        json.beginObject().field("trn", trn).field("name", threadName(profile, trn));
        json.field("ownNs", ns).endObject();
    }
    json.endArray();
}

void TopView::writeShown(JsonWriter& json, const TopInterval& interval, const Moment& now) {
    json.key("view").beginObject().field("show", vdk::nameOf(*choices.show).option);
    if (now.shown.profile.measure->isOfObjects()) {
        writeEstimate(json, now.shown.profile);
    }
    writeRates(json, now.shown, interval.rates, reportChoices());
    json.endObject();
}

void TopView::writeJvm(JsonWriter& json, const TopSubject& subject, const Part* part) {
    json.field("pid", subject.info.pid);
    json.field("session", subject.info.sessionName);
    if (isOfMany) {
        json.field("state", nameOf(subject.state));
    }
    if (!part) {
        return;
    }
    const TopInterval& interval = part->interval;
    const Moment& now = *subject.now;
    json.field("intervalNs", int64_t(interval.seconds * 1e9)).field("totalNs", interval.whole);
    writeSampled(json, interval.sampled);
    writeSampler(json, now.profile);
    if (now.heapUsedBytes >= 0) {
        json.field("heapUsedBytes", now.heapUsedBytes).field("liveThreads", now.liveThreads);
    }
    json.field("blockedNs", interval.event(TopInterval::BlockedNs));
    json.field("exceptions", interval.event(TopInterval::Exceptions));
    if (choices.allocations && !choices.show) {
        writeAllocations(json, interval);
    }
    if (isMethodTable()) {
        writeMethods(json, interval, now.profile);
    }
    if (choices.show) {
        writeShown(json, interval, now);
    }
}

void TopView::writeJson() {
    JsonDocument json(console, "vdk.top/1", false);
    if (!isOfMany) {
        writeJvm(json, subjects->front(), &parts.front());
        json.end();
        return;
    }
    json.field("totalNs", whole).key("jvms").beginArray();
    for (const TopSubject& subject : *subjects) {
        json.beginObject();
        writeJvm(json, subject, partOf(subject));
        json.endObject();
    }
    json.endArray();
    json.end();
}

} // namespace vdk
