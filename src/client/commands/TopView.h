// What `vdk top` shows of an interval: the overview of methods and threads, or one view of what is
// recorded.
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

class TopView {
public:
    TopView(Console& console, const LiveAgent& agent, const DataSource& source)
        : console(console), agent(agent), source(source) {}

    // Shows the interval between two moments. On a terminal all of the screen is used, with `keys`
    // the last line for these.
    void show(const Moment& before, const Moment& now, const TopChoices& choices, bool keys);

private:
    void compare(const Moment& before, const Moment& now);
    void print(Console& page, const Moment& now);
    void printTimes(Console& page, const Profile& profile, size_t lines, size_t nameWidth);
    std::vector<std::string> headOf(const Moment& now);
    size_t printHead(Console& page, const Moment& now);
    void printMethods(Console& page, const Profile& profile, size_t lines, size_t nameWidth);
    void printThreads(Console& page, const Profile& profile, size_t most, size_t nameWidth);
    void printAllocations(Console& page, size_t nameWidth);
    void printShown(Console& page, const Moment& now);
    void putOnScreen(const std::string& text);
    void writeJson(const Moment& now);
    void writeAllocations(JsonWriter& json);
    void writeMethods(JsonWriter& json, const Profile& profile);
    void writeShown(JsonWriter& json, const Moment& now);

    bool isMethodTable() const {
        return !choices.show || (choices.show == Shown::Cpu && choices.by == Grouping::Method);
    }
    ReportChoices reportChoices() const;

    Console& console;
    const LiveAgent& agent;
    const DataSource& source; // for what explains an empty view
    TopChoices choices;
    bool keys = false;
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
