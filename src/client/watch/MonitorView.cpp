#include "client/watch/MonitorView.h"

#include "client/console/Text.h"
#include "client/watch/CallView.h"

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <unistd.h>
#include <utility>

namespace vdk {

namespace {

// What the columns left of the methods take as a rule.
constexpr size_t NumberColumns = 76;

std::string keyOf(const MethodSums& sums) {
    return sums.className + ":" + sums.method + sums.signature;
}

// Fewer than ten calls a second have a digit behind the point.
std::string formatRate(int64_t calls, double seconds) {
    const int64_t tenths = int64_t(double(calls) * 10 / seconds);
    return tenths < 100 ? formatPercent(double(tenths) / 10) : formatCount((tenths + 5) / 10);
}

double secondsBetween(WatchFeed::Clock::time_point from, WatchFeed::Clock::time_point to) {
    return std::max(std::chrono::duration<double>(to - from).count(), 1e-3);
}

int64_t nowMs() {
    return std::chrono::duration_cast<std::chrono::milliseconds>(
               std::chrono::system_clock::now().time_since_epoch())
        .count();
}

// Whether another method of the list has this one's name.
std::map<std::string, int> countNames(const std::vector<MethodSums>& methods) {
    std::map<std::string, int> counts;
    for (const MethodSums& sums : methods) {
        counts[sums.name(false)]++;
    }
    return counts;
}

} // namespace

MonitorView::MonitorView(Console& console, std::string pattern, int pid)
    : console(console), pattern(std::move(pattern)), pid(pid) {}

void MonitorView::showPeriod(const WatchFeed::News& now) {
    std::vector<MethodSums> methods;
    for (const MethodSums& sums : now.methods) {
        MethodSums& before = shown[keyOf(sums)];
        methods.push_back(sums.since(before));
        before = sums;
    }
    show(std::move(methods), secondsBetween(shownAt, now.at), false);
    shownAt = now.at;
}

void MonitorView::showSum(const WatchFeed::News& now) {
    show(now.methods, secondsBetween(start, now.at), true);
}

void MonitorView::show(std::vector<MethodSums> methods, double seconds, bool ofAll) {
    methods.erase(std::remove_if(methods.begin(), methods.end(),
                                 [](const MethodSums& sums) { return sums.calls == 0; }),
                  methods.end());
    std::stable_sort(methods.begin(), methods.end(), [](const auto& one, const auto& other) {
        return one.totalNs > other.totalNs;
    });
    if (console.json) {
        write(methods, seconds, ofAll);
        return;
    }
    char period[32];
    snprintf(period, sizeof(period), "%.1f s", seconds);
    const std::string head = timeOfDay(nowMs()) + "  " + (ofAll ? "all " : "") + period;
    console.out << console.styled(head, "2") << (methods.empty() ? "  no calls" : "") << "\n";
    if (methods.empty()) {
        console.out << std::flush;
        return;
    }
    TextTable table({{"CALLS", TextTable::Right},
                     {"CALLS/S", TextTable::Right},
                     {"ERRORS", TextTable::Right},
                     {"MEAN", TextTable::Right},
                     {"P50", TextTable::Right},
                     {"P95", TextTable::Right},
                     {"P99", TextTable::Right},
                     {"MAX", TextTable::Right},
                     {"METHOD"}});
    std::map<std::string, int> names = countNames(methods);
    const size_t columns = size_t(screenSize(STDOUT_FILENO).columns);
    const size_t room =
        console.outIsTerminal ? columns - std::min(columns, NumberColumns) : SIZE_MAX;
    for (const MethodSums& sums : methods) {
        table.add({formatCount(sums.calls), formatRate(sums.calls, seconds),
                   formatCount(sums.errors), shortDuration(sums.meanNs()),
                   shortDuration(sums.quantileNs(0.5)), shortDuration(sums.quantileNs(0.95)),
                   shortDuration(sums.quantileNs(0.99)), shortDuration(sums.longestNs),
                   withoutPackages(printable(sums.name(names[sums.name(false)] > 1)), room)});
    }
    table.print(console);
    console.out << "\n" << std::flush;
}

void MonitorView::write(const std::vector<MethodSums>& methods, double seconds, bool ofAll) {
    JsonDocument json(console, "vdk.monitor/1", false);
    json.field("pid", pid).field("pattern", pattern).field("timeMs", nowMs());
    json.field("seconds", seconds).field("all", ofAll).key("methods").beginArray();
    for (const MethodSums& sums : methods) {
        json.beginObject().field("class", sums.className).field("method", sums.method);
        json.field("signature", sums.signature).field("calls", sums.calls);
        json.field("callsPerSecond", double(sums.calls) / seconds).field("errors", sums.errors);
        json.field("meanNs", sums.meanNs()).field("p50Ns", sums.quantileNs(0.5));
        json.field("p95Ns", sums.quantileNs(0.95)).field("p99Ns", sums.quantileNs(0.99));
        json.field("minNs", sums.shortestNs).field("maxNs", sums.longestNs).endObject();
    }
    json.endArray();
    json.end();
    console.out << std::flush;
}

} // namespace vdk
