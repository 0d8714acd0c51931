// The CPU or allocation data of a database in the form that reports need: plain arrays, only live
// rows, own times computed. Made once from a DB; knows neither tables nor stamps any more.
#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <utility>
#include <vector>

class DB;

namespace vdk {

// What a profile adds up, and how reports name it.
struct Measure {
    const char* title;      // of the table of methods
    const char* ownTitle;   // column
    const char* countTitle; // column
    const char* countWord;  // in a line of the tree
    const char* ownField;   // JSON
    const char* totalField;
    const char* countField;
    std::string (*format)(int64_t);
    const char* classTitle; // of the table of classes; null where there is none

    bool isOfObjects() const { return classTitle != nullptr; }
};
extern const Measure CpuTime;        // nanoseconds, and calls
extern const Measure ElapsedTime;    // nanoseconds
extern const Measure SampleCounts;   // of other profilers, who tell no times
extern const Measure AllocatedBytes; // bytes, and objects
extern const Measure LiveBytes;
extern const Measure GarbageBytes;

// A property of tables that come from another profiler's file, and its values.
constexpr char MeasureProperty[] = "vdk.import.measure";
constexpr char CpuMeasureName[] = "cpu";
constexpr char ElapsedMeasureName[] = "elapsed";
constexpr char SamplesMeasureName[] = "samples";

struct ProfileMethod {
    std::string className, name, parameters;
    int flags = 0; // MethodFlag

    bool isHidden() const;
    bool isFiltered() const;
    // "pkg.Class.method(int)", without the parameters on demand.
    std::string fullName(bool withParameters = true) const;
};

// CPU time of threads while they were sampled, and how much of it was charged to their stacks. The
// rest passed between a last sample and a wait or the thread's end.
struct SampledCpu {
    int64_t usedNs = 0;
    int64_t chargedNs = 0;

    bool isKnown() const { return usedNs > 0; }
    SampledCpu& operator+=(const SampledCpu& other);
    SampledCpu since(const SampledCpu& earlier) const;
};
// The user table that they come from.
constexpr const char* SampledCpuTable = "Sampled CPU";

struct ProfileThread {
    int trn = 0;
    std::string name, group;
    int64_t nativeId = 0;
    SampledCpu sampled = {};
};

// What one thread spent in one frame itself, its callees not included.
struct Charge {
    int thread = 0; // index into Profile::threads
    int frame = 0;
    int64_t own = 0;   // nanoseconds or bytes
    int64_t count = 0; // calls, 0 under sampling; objects
};

// The part of a charge's own time that was spent in one line of the source.
struct LineTime {
    int line = 0;
    int64_t ownNs = 0;
};
// The user table that they come from.
constexpr const char* SampledLinesTable = "Sampled Lines";

// Events of one kind and name on one thread in one frame: requests, SQL statements, look-ups.
struct J2eeEvent {
    int thread = 0; // index into Profile::threads
    int frame = 0;
    int kind = 0; // as the table j2ee has it
    std::string name;
    int64_t timeNs = 0; // what the frame, with its callees, was charged while they went on
    int64_t count = 0;
};

struct Profile {
    struct Frame {
        int parent = -1; // less than the frame's own index; -1 for the root and absent rows
        int method = 0;  // index into methods
    };

    std::vector<ProfileMethod> methods;
    std::vector<Frame> frames; // index 0 is the root
    std::vector<ProfileThread> threads;
    std::vector<Charge> charges; // by thread, then frame
    std::vector<J2eeEvent> j2ee;
    // Of charges, by thread and frame; what they leave was spent in lines that nobody knows.
    std::map<std::pair<int, int>, std::vector<LineTime>> lines;
    bool hasCounts = false;
    bool isOfCallers = false; // stacks go from methods to their callers
    const Measure* measure = &CpuTime;
    // What the agent tells of its sampler: "signal", "elapsed", "walk", or "walk: " and why signals
    // were not possible; empty where nobody asked for another than the stack walker.
    std::string sampler;
    // Of sampling by signals.
    int lostSamples = 0;
    int threadsWithoutTimer = 0;
    int64_t notWalkableNs = 0;    // charged to threads whose stacks could not be walked
    int64_t samplingInterval = 0; // bytes; of allocations that are estimated from samples

    int64_t total() const;
    SampledCpu sampledCpu() const;
    // A method whose time is elapsed time beside the CPU times of the others.
    bool isWallTime(int method) const;
    // What these have of their own; 0 where all times are elapsed times, or none is.
    int64_t waitsNs() const;
};

// The profile of the live rows. The own time of a frame is its time less that of its children, at
// least 0. A thread whose row is gone is shown by its key.
Profile makeProfile(DB& db);

// Of the recorded objects all, those that live, or those that have ended.
enum class Recorded { All, Live, Garbage };

// The user table that tells which recorded objects live.
constexpr const char* LiveAllocationsTable = "Live Allocations";
// Whether the database has it: agents of other releases do not tell.
bool knowsLiveObjects(DB& db);

// The recorded allocations. Where the agent knew the class of an object, it stands below the frame
// that allocated it, as a method of that class named AllocatedClass.
Profile makeAllocationProfile(DB& db, Recorded which = Recorded::All);
constexpr const char* AllocatedClass = "<<init>>";

// The class that a frame of such a profile stands for, "<unknown>" for a method's.
std::string allocatedClass(const Profile& profile, int frame);
// The frame that allocated: the one above a class's, any other itself.
int allocatingFrame(const Profile& profile, int frame);

// Charges the frame that allocated an object instead of its class's.
void foldAllocatedClasses(Profile& profile);

struct ClassAllocations {
    std::string name;
    int64_t bytes = 0;
    int64_t objects = 0;
};
// By falling bytes, of some threads or, with none named, of all.
std::vector<ClassAllocations> allocatedClasses(const Profile& profile,
                                               const std::vector<int>& threads);

} // namespace vdk
