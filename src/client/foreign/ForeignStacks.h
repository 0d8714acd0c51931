// Stacks of another profiler's file, gathered into the tables that reports are made from.
#pragma once

#include "db/DB.h"

#include <cstdint>
#include <map>
#include <memory>
#include <string>
#include <unordered_map>
#include <vector>

namespace vdk {

// What the numbers of such a file are.
enum class ForeignUnit { Samples, CpuNs, ElapsedNs };

class ForeignStacks {
public:
    ForeignStacks();

    // `frames` are "pkg.Class.method", the outermost one first; an empty stack counts for a frame
    // that says so. Throws ClientError BadInput "foreign.data" where the values are negative or
    // their sum is too large.
    void add(const std::vector<std::string>& frames, const std::string& thread, int64_t value);
    bool isEmpty() const { return threads.empty(); }
    // The tables; nothing can be added behind it.
    std::unique_ptr<DB> take(ForeignUnit unit);

private:
    int text(const std::string& characters);
    int methodOf(const std::string& frame);
    int childOf(int parent, int method);
    std::map<int, int64_t>& threadOf(const std::string& name);

    std::unique_ptr<DB> db;
    std::unordered_map<std::string, int> methods;
    std::unordered_map<uint64_t, int> frames; // by parent and method
    std::unordered_map<std::string, int> threads;
    std::vector<std::map<int, int64_t>> values; // own values by frame, by thread
    std::vector<int> parents = {0};             // by frame
    int64_t sum = 0;
};

} // namespace vdk
