// The CPU data of a database in the form that reports need: plain arrays, only live rows, own times
// computed. Made once from a DB; knows neither tables nor stamps any more.
#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <vector>

class DB;

namespace vdk {

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
    int64_t ownNs = 0;
    int64_t count = 0; // calls; 0 under sampling
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
    bool hasCounts = false;

    int64_t totalNs() const;
    SampledCpu sampledCpu() const;
};

// The profile of the live rows. The own time of a frame is its time less that of its children, at
// least 0. A thread whose row is gone is shown by its key.
Profile makeProfile(DB& db);

} // namespace vdk
