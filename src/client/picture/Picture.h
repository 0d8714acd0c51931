// What a flame graph is drawn from: for each thing that was recorded a tree of stacks, with what
// each thread spent there. Methods are told by their names, so that two recordings make one picture
// of what changed between them.
#pragma once

#include "client/profile/EventData.h"

#include <map>
#include <string>
#include <unordered_map>
#include <vector>

namespace vdk {

// Two recordings that are compared: the earlier one is the base.
enum class Side { Base, Now };

struct StackTree {
    struct Node {
        int parent = -1; // less than the node's own index
        int name = -1;   // index into Picture::names
    };
    struct Sums {
        int64_t own = 0, count = 0;
    };
    // What a thread spent in a node itself.
    struct Entry {
        int node = 0, thread = 0;
        Sums now, base;
        std::vector<LineTime> lines = {}; // parts of now.own
    };

    std::string id; // "cpu", "monitors-blocked"
    std::string title;
    std::string unit;       // "ns", "bytes" or "count"
    std::string countTitle; // of the counts; empty where there are none
    double baseFactor = 1;  // what values of the base are multiplied by to be compared
    std::vector<Node> nodes = {{}};
    std::vector<Entry> entries; // by node, then thread

    Sums total(Side side) const;
};

// A method over all of a tree, for lists.
struct NameSums {
    int name = 0;
    struct Of {
        int64_t own = 0, total = 0, count = 0; // a recursive call's total counts once
    } now, base;
};
std::vector<NameSums> sumsByName(const StackTree& tree);
// The same of each node, at its index.
std::vector<NameSums> sumsByNode(const StackTree& tree);

struct PictureChoices {
    bool filters = false;
    bool signatures = false;
    bool eachThread = false; // threads of one name are not one
    bool exactNames = false; // whole, and with what is unprintable
};

class Picture {
public:
    struct Name {
        std::string className, method; // with its parameters if these are wanted
        std::string parameters = {};   // with exact names: methods that differ in them are two
        // Of an allocated class its name alone.
        std::string full() const;
    };
    struct Thread {
        std::string name, group;
        int trn = 0; // of one of them, unless each is told
    };

    explicit Picture(const PictureChoices& choices) : choices(choices) {}

    // Adds what one list of events has, each kind of it as a tree of its own.
    void add(const EventData& data, Side side);
    // To be called behind the last add(): sorts, and leaves out trees without anything.
    void finish();

    std::vector<Name> names;
    std::vector<Thread> threads;
    std::vector<StackTree> trees;
    bool isComparison = false;
    std::string title, session, source, notes;

private:
    class Adder;

    StackTree& treeOf(const EventData& data, const std::string& kind);
    int nameOf(const ProfileMethod& method);
    int nameOf(const std::string& className, const std::string& method,
               const std::string& parameters = {});
    int threadOf(const EventRow& row);
    std::string shown(const std::string& text) const;
    int childOf(StackTree& tree, int parent, int name);

    const PictureChoices choices;
    std::map<std::string, int> nameIndex;
    std::map<std::string, int> threadIndex;
    std::map<std::string, std::unordered_map<uint64_t, int>> children; // by tree
    std::map<std::string, std::unordered_map<uint64_t, size_t>> entryOf;
};

// All that was recorded: CPU or elapsed times, allocations, waits by kind, exceptions.
void addAll(Picture& picture, DB& db, Side side, bool mergeNames, const Selection& selection,
            std::vector<std::string>* unmatched = nullptr);

} // namespace vdk
