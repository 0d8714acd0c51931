// The tree of calls that reports and exports show, and the methods ranked by it.
#pragma once

#include "client/profile/Profile.h"

#include <cstdint>
#include <vector>

namespace vdk {

// A node is a call of a method from its parent's method. Hidden methods have none: their time is
// their caller's. With filters on the same holds for filtered methods; time of a stack without any
// unfiltered method stands under a node of the pseudo method OnlyFiltered.
struct CallTree {
    static constexpr int OnlyFiltered = -1;

    struct Node {
        int parent = -1;
        int method = 0; // of Profile::methods, or OnlyFiltered
        int64_t own = 0;
        int64_t total = 0; // own time and that of all nodes below
        int64_t count = 0;
        std::vector<int> children; // by falling total time
        std::vector<int> j2ee;     // of Profile::j2ee
    };

    // Node 0 is the root and belongs to no method; parents stand before their children.
    std::vector<Node> nodes;

    int64_t total() const { return nodes[0].total; }
};

struct CallTreeChoices {
    bool filters = false;
    int thread = -1;               // index of Profile::threads, -1 for all
    std::vector<int> threads = {}; // several of them; empty leaves it to `thread`
};

CallTree makeCallTree(const Profile& profile, const CallTreeChoices& choices);
// The tree of these charges in place of the profile's own: of waits, or of throws.
CallTree makeCallTree(const Profile& profile, const std::vector<Charge>& charges,
                      const CallTreeChoices& choices);

// A method over all places of a tree.
struct HotMethod {
    int method = 0;
    int64_t own = 0;
    int64_t total = 0; // a recursive call counts once
    int64_t count = 0;
};

// By falling own time, then total time.
std::vector<HotMethod> hotMethods(const CallTree& tree);

// Time by thread, largest first.
struct ThreadTime {
    int thread = 0;
    int64_t own = 0;
};
std::vector<ThreadTime> threadTimes(const Profile& profile);

// Name of a tree node's method.
std::string methodName(const Profile& profile, int method, bool withParameters = true);

} // namespace vdk
