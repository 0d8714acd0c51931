// What `vdk top` looks at: a JVM at one moment, and what it did between two.
#pragma once

#include "client/commands/Sources.h"
#include "client/profile/EventRates.h"

#include <map>
#include <optional>

namespace vdk {

// What is looked at.
struct TopChoices {
    bool filters = false;
    bool cpu = false;          // it is sampled or traced
    bool allocations = false;  // they are recorded
    std::optional<Shown> show; // the overview without one
    Grouping by = Grouping::None;
    std::optional<size_t> top; // lines of a list, if the user wants so many
    Selection selection;
    bool byTotal = false;     // methods in the order of their totals
    bool threadsOnly = false; // threads in place of methods
    bool isPaused = false;    // what is on the screen stays
    bool withHelp = false;    // what keys do, in place of all else

    // The way that a view is grouped unless the user says otherwise.
    static Grouping usualGrouping(Shown what);
};

// Times or numbers of calls by key at one moment; what was spent since the last moment is the
// difference.
using Sums = std::map<int, int64_t>;
// By name of a class.
using NamedSums = std::map<std::string, int64_t>;

struct Moment {
    Profile profile;
    Sums methodOwn, methodTotal, methodCalls, threadOwn, events;
    NamedSums allocatedBytes, allocatedObjects;
    bool estimated = false; // the allocations
    int64_t heapUsedBytes = -1, liveThreads = 0;
    int64_t timeNs = 0;  // by the monotonic clock
    EventData shown;     // of the view
    int64_t shownNs = 0; // when that was looked at

    // Takes what only some views look at from a later moment, so that their interval begins there.
    void takeViewsOf(const Moment& later);
};

Moment look(DB& db, const TopChoices& choices);

// What was spent between two moments; of lists the largest stands first.
struct TopInterval {
    // `pools` makes the threads of a pool one.
    TopInterval(const Moment& before, const Moment& now, const TopChoices& choices,
                const ReportChoices& report, bool pools);

    int64_t event(int which) const {
        const auto found = events.find(which);
        return found == events.end() ? 0 : found->second;
    }

    // Keys of `events` and of Moment::events.
    enum Event { BlockedNs, Exceptions };

    std::vector<std::pair<int, int64_t>> methods, threads;
    std::vector<std::pair<std::string, int64_t>> allocated;
    NamedSums allocatedObjects;
    bool isEstimated = false; // what was allocated
    Sums totals, calls, events;
    int64_t whole = 0;
    SampledCpu sampled;
    EventRates rates;
    double seconds = 0;
};

} // namespace vdk
