// Reports on a profile: hot methods and call tree, of allocations also the classes, as text for
// people or as JSON.
#pragma once

#include "client/console/Console.h"
#include "client/profile/CallTree.h"

#include <string>

namespace vdk {

// How a section other than CPU times is grouped; None shows all its lists.
enum class Grouping { None, Method, Tree, Class, Package, Thread, Group, Line };

struct ReportChoices {
    bool allocations = true;
    bool live = false;
    bool garbage = false;
    Grouping by = Grouping::None;
    bool methods = true;
    bool tree = true;
    bool monitors = false;   // where any were recorded, or if nothing else is shown
    bool exceptions = false; // likewise
    bool j2ee = false;       // likewise
    bool byThread = false;
    bool filters = false;
    bool signatures = false;
    size_t top = 30;
    double minPercent = 1;
    int depth = 60;
    size_t threads = 10; // by thread: so many threads or pools, as text
};

// Threads whose names differ in the number at the end only, by falling CPU time.
struct ThreadPool {
    std::string name;         // with * for the number; of a single thread its own
    std::vector<int> threads; // of Profile::threads
    int64_t own = 0;
};
std::vector<ThreadPool> threadPools(const Profile& profile);

// Tells that the figures are estimates, where they are.
void printEstimate(Console& console, const Profile& profile);
// The fields that tell it of a profile of allocations.
void writeEstimate(JsonWriter& json, const Profile& profile);

void printReport(Console& console, const Profile& profile, const ReportChoices& choices);

// The fields of the report in an object that the caller has begun and ends: total, filters, and
// either methods and tree, or threads that each have these. Times are nanoseconds.
void writeReport(JsonWriter& json, const Profile& profile, const ReportChoices& choices);

// The first frame from this one outwards whose method is shown, 0 without one.
int shownFrame(const Profile& profile, int frame);

// Who sampled, and why not by signals where these were wanted.
std::string samplerText(const Profile& profile);
// The name of who sampled in JSON; empty without CPU times that were sampled.
std::string samplerName(const Profile& profile);
// How much of the CPU time samples saw, who sampled, and what was lost. Empty where it is not
// known.
std::string samplingText(const Profile& profile, const SampledCpu& cpu);
// "sampled 2.00 s of 6.90 s CPU"; empty where it is not known.
std::string sampledText(const SampledCpu& cpu);
// The fields sampler, samplerReason, lostSamples and threadsWithoutTimer.
void writeSampler(JsonWriter& json, const Profile& profile);
// The fields sampledCpuNs and usedCpuNs, null where they are not known.
void writeSampled(JsonWriter& json, const SampledCpu& cpu);

// The indentation of a level of a tree. Where it would leave a method's name no room it stops
// growing, and a number tells the level instead.
std::string indentation(int depth, size_t columns);

// Percent of a whole; 0 of nothing.
double percentOf(int64_t part, int64_t whole);

} // namespace vdk
