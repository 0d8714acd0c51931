// HotSpot's own thread dump, taken apart: who is where, holds what and waits for what. Beside the
// agent's it tells native ids and CPU times, and needs no agent.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace vdk {

struct HotSpotLock {
    std::string address; // "0x000000069ec16d90", of this dump alone
    std::string className;
};

struct HotSpotThread {
    std::string name;
    int64_t nativeId = 0;
    int64_t cpuNs = -1;   // -1 where the JVM does not tell
    std::string state;    // "BLOCKED"; empty for a thread of the JVM itself
    std::string doing;    // "on object monitor", "parking", "sleeping"; or empty
    std::string topFrame; // "pkg.Class.method", generated names cleaned
    std::vector<HotSpotLock> held;
    HotSpotLock wanted; // no address where it waits for none that somebody may hold

    bool isOfJvm() const { return state.empty(); }
};

// What follows "Full thread dump" in HotSpot's form; lines that are not known are passed over.
std::vector<HotSpotThread> parseHotSpotDump(const std::string& text);

} // namespace vdk
