// The agent's thread dump, which is a text, as data.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace vdk {

struct DumpedFrame {
    std::string method;             // "java.lang.Object.wait"
    std::string source;             // "Object.java:338", "Native Method", "Unknown Source"
    std::vector<std::string> locks; // "locked ...", "waiting on ... owned by ..."
};

struct DumpedThread {
    std::string name, state;
    int64_t id = 0;
    int priority = 0; // 0 if it is not known
    bool daemon = false;
    std::vector<DumpedFrame> frames;
    std::vector<std::string> ownedLocks; // synchronizers that it holds
};

struct ThreadDump {
    std::string jvm; // name and version
    std::vector<DumpedThread> threads;
    std::vector<int64_t> deadlocked; // ids of the threads that wait for each other
};

// Lines that are none of a dump's are left out.
ThreadDump parseThreadDump(const std::string& text);

} // namespace vdk
