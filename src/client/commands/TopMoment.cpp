#include "client/commands/TopMoment.h"

#include "client/commands/SelectionArguments.h"
#include "client/profile/ExceptionReport.h"
#include "client/profile/GeneratedNames.h"
#include "client/profile/MonitorReport.h"
#include "platform/Platform.h"

#include <algorithm>

namespace vdk {

namespace {

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
            moment.events[TopInterval::BlockedNs] += use.timeNs;
        }
    }
    for (const ThrownRow& row : readExceptions(db, moment.profile)) {
        moment.events[TopInterval::Exceptions] +=
            selector.keeps(row.thread, row.throwFrame) ? row.count : 0;
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

TopInterval::TopInterval(const Moment& before, const Moment& now, const TopChoices& choices,
                         const ReportChoices& report, bool pools) {
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
                           report, pools);
    }
}

} // namespace vdk
