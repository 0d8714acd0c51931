// What a profile for the Firefox Profiler shows as threads, of a size that viewers take: each
// thread has tables of its own in that form, so that hundreds of threads repeat the names of their
// methods hundreds of times. Where that is too much, threads of a pool become one.
#pragma once

#include "client/picture/Picture.h"

#include <cstdint>
#include <string>
#include <unordered_map>
#include <utility>
#include <vector>

class DB;

namespace vdk {

struct FirefoxMarker {
    std::string name, text;
    int64_t startNs = 0, endNs = 0;
    bool isOpen = false;
    bool hasDuration = false;

    int64_t durationNs() const { return endNs - startNs; }
};

struct FirefoxTrack {
    std::string process, processName, name;
    int trn = 0;                                // of the first thread
    const StackTree* tree = nullptr;            // null of one that has markers alone
    std::vector<std::pair<int, int64_t>> nodes; // with what was spent in them, by rising node
    std::vector<FirefoxMarker> markers;
};

// The stacks of one track, with tables of their own: a node's parent stands before it.
class FirefoxTables {
public:
    FirefoxTables(const Picture& picture, const FirefoxTrack& track);

    int text(const std::string& content);
    // About so many bytes of JSON.
    size_t bytes() const;

    std::vector<int> samples;  // stacks
    std::vector<int> prefixes; // by stack, -1 of an outermost one
    std::vector<int> frames;   // by stack
    std::vector<int> funcs;    // name by function; each has one frame
    std::vector<std::string> strings;

private:
    int stackOf(const StackTree& tree, int node);
    int funcOf(int name);

    const Picture& picture;
    std::unordered_map<int, int> stacks, funcIndex; // by node, by name
    std::unordered_map<std::string, int> stringIndex;
    std::vector<int> path;
};

class FirefoxTracks {
public:
    // Keeps stacks and markers below about `mostBytes` each.
    FirefoxTracks(const Picture& picture, DB& db, size_t mostBytes);

    std::vector<FirefoxTrack> tracks;
    // What is not told one by one, for the profile's own words; "" where all is.
    std::string threadsRemark, stacksRemark, markersRemark;

private:
    void addStacks(bool pooled, int64_t parts);
    size_t bytesOfStacks() const;
    void shrinkStacks(size_t mostBytes);
    void addMarkers(DB& db, size_t mostBytes);
    std::string keyOf(int trn, const std::string& name) const;
    FirefoxTrack& trackFor(int trn, const std::string& name);

    const Picture& picture;
    bool isPooled = false;
    std::unordered_map<std::string, size_t> trackOfKey; // the first of each thread
};

} // namespace vdk
