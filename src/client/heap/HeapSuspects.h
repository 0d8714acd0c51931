// Where memory has gathered: places in the dominator tree that hold much themselves.
#pragma once

#include "client/heap/HeapClasses.h"
#include "client/heap/HeapSession.h"

#include <string>
#include <vector>

namespace vdk {

// An object that much has gathered below, or the objects of a class that no single object holds.
struct HeapSuspect {
    int row = 0;           // of the object, or of the largest one of a group
    int64_t bytes = 0;     // retained, without what other suspects below it account for
    double share = 0;      // of the bytes that roots reach, in percent
    int64_t groupSize = 0; // objects of a group, 0 for a single object
    int64_t chained = 0;   // objects of the same class that follow one another, as in a list
    std::vector<HeapClassSum> children; // classes right below, largest first
    std::vector<int> path;              // shortest from a root, through strong references if any is
};

struct HeapSuspects {
    int64_t reachedBytes = 0;
    std::vector<HeapSuspect> list; // largest first
};

// Those with at least so many percent of the reached bytes, at most `most` of them.
HeapSuspects findSuspects(const HeapSession& session, double percent, size_t most);

// What holds the last row of a path: "static field demo.Cache.MAP", "thread "main" at ...", "JNI
// global".
std::string heapHolderText(const HeapModel& model, const std::vector<int>& path);

// "java.util.HashMap$Node[8] @..", or "12 objects of demo.Session".
std::string heapSuspectText(const HeapModel& model, const HeapSuspect& suspect);

// "most of it: 20,000 demo.Session, 12.3 MB"; empty if nothing is below.
std::string heapSuspectContent(const HeapSuspect& suspect);

// The field "suspects" of a document.
void writeSuspects(JsonWriter& json, const HeapSession& session, const HeapSuspects& suspects);

} // namespace vdk
