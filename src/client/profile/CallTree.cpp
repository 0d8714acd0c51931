#include "client/profile/CallTree.h"

#include "client/profile/TreeWalk.h"

#include <algorithm>
#include <map>
#include <unordered_map>

namespace vdk {

namespace {

struct NodeKey {
    int parent, method;
    bool operator==(const NodeKey& other) const {
        return parent == other.parent && method == other.method;
    }
};

struct NodeKeyHash {
    size_t operator()(const NodeKey& key) const {
        return std::hash<uint64_t>()(uint64_t(uint32_t(key.parent)) << 32 | uint32_t(key.method));
    }
};

class TreeMaker {
public:
    TreeMaker(const Profile& profile, const std::vector<Charge>& charges,
              const CallTreeChoices& choices)
        : profile(profile), charges(charges), choices(choices),
          nodeOfFrame(profile.frames.size(), Unknown) {}

    CallTree make() {
        tree.nodes.resize(1);
        nodeOfFrame[0] = 0;
        for (const Charge& charge : charges) {
            if (!isChosen(charge.thread)) {
                continue;
            }
            if (!isLinked(charge.frame)) {
                continue;
            }
            int node = findNode(charge.frame);
            if (node == 0 && charge.own > 0) {
                node = child(0, CallTree::OnlyFiltered);
            }
            tree.nodes[size_t(node)].own += charge.own;
            if (node != 0 && isShown(charge.frame)) {
                tree.nodes[size_t(node)].count += charge.count;
            }
        }
        addJ2ee();
        sumUp();
        return std::move(tree);
    }

private:
    static constexpr int Unknown = -2;

    bool isChosen(int thread) const {
        if (!choices.threads.empty()) {
            return std::find(choices.threads.begin(), choices.threads.end(), thread) !=
                   choices.threads.end();
        }
        return choices.thread < 0 || thread == choices.thread;
    }

    bool isShown(int frame) const {
        const ProfileMethod& method = profile.methods[size_t(profile.frames[size_t(frame)].method)];
        return !method.isHidden() && !(choices.filters && method.isFiltered());
    }

    // False for a frame that is absent.
    bool isLinked(int frame) const {
        return frame > 0 && profile.frames[size_t(frame)].parent >= 0;
    }

    int child(int parent, int method) {
        auto [entry, added] = children.try_emplace(NodeKey{parent, method}, int(tree.nodes.size()));
        if (added) {
            CallTree::Node node;
            node.parent = parent;
            node.method = method;
            tree.nodes.push_back(node);
        }
        return entry->second;
    }

    // The node that the frame's time belongs to. Frames are deep: no recursion.
    int findNode(int frame) {
        path.clear();
        while (frame > 0 && nodeOfFrame[size_t(frame)] == Unknown) {
            path.push_back(frame);
            frame = isLinked(frame) ? profile.frames[size_t(frame)].parent : 0;
        }
        int node = nodeOfFrame[size_t(frame)];
        for (auto it = path.rbegin(); it != path.rend(); ++it) {
            if (isShown(*it)) {
                node = child(node, profile.frames[size_t(*it)].method);
            }
            nodeOfFrame[size_t(*it)] = node;
        }
        return node;
    }

    void addJ2ee() {
        for (size_t i = 0; i < profile.j2ee.size(); i++) {
            const J2eeEvent& event = profile.j2ee[i];
            const int node =
                isChosen(event.thread) && isLinked(event.frame) ? findNode(event.frame) : 0;
            if (node > 0) {
                tree.nodes[size_t(node)].j2ee.push_back(int(i));
            }
        }
    }

    void sumUp() {
        auto& nodes = tree.nodes;
        for (size_t i = nodes.size(); i-- > 0;) {
            nodes[i].total += nodes[i].own;
            if (i > 0) {
                nodes[size_t(nodes[i].parent)].total += nodes[i].total;
            }
        }
        for (size_t i = 1; i < nodes.size(); i++) {
            nodes[size_t(nodes[i].parent)].children.push_back(int(i));
        }
        for (CallTree::Node& node : nodes) {
            std::stable_sort(node.children.begin(), node.children.end(), [&](int a, int b) {
                return nodes[size_t(a)].total > nodes[size_t(b)].total;
            });
        }
    }

    const Profile& profile;
    const std::vector<Charge>& charges;
    const CallTreeChoices& choices;
    CallTree tree;
    std::unordered_map<NodeKey, int, NodeKeyHash> children;
    std::vector<int> nodeOfFrame;
    std::vector<int> path;
};

} // namespace

CallTree makeCallTree(const Profile& profile, const CallTreeChoices& choices) {
    return TreeMaker(profile, profile.charges, choices).make();
}

CallTree makeCallTree(const Profile& profile, const std::vector<Charge>& charges,
                      const CallTreeChoices& choices) {
    return TreeMaker(profile, charges, choices).make();
}

std::vector<HotMethod> hotMethods(const CallTree& tree) {
    std::unordered_map<int, HotMethod> byMethod;
    std::unordered_map<int, int> onPath; // how often a method stands above the current node
    walkTree(
        tree, {INT64_MIN, INT32_MAX},
        [&](const CallTree::Node& node, int) {
            HotMethod& method = byMethod[node.method];
            method.method = node.method;
            method.own += node.own;
            method.count += node.count;
            if (onPath[node.method]++ == 0) {
                method.total += node.total;
            }
        },
        [&](const CallTree::Node& node, int) { onPath[node.method]--; });
    std::vector<HotMethod> result;
    for (const auto& entry : byMethod) {
        result.push_back(entry.second);
    }
    std::sort(result.begin(), result.end(), [](const HotMethod& a, const HotMethod& b) {
        if (a.own != b.own) {
            return a.own > b.own;
        }
        return a.total != b.total ? a.total > b.total : a.method < b.method;
    });
    return result;
}

std::vector<ThreadTime> threadTimes(const Profile& profile) {
    std::map<int, int64_t> times;
    for (const Charge& charge : profile.charges) {
        times[charge.thread] += charge.own;
    }
    std::vector<ThreadTime> result;
    for (const auto& [thread, own] : times) {
        result.push_back({thread, own});
    }
    std::stable_sort(result.begin(), result.end(),
                     [](const ThreadTime& a, const ThreadTime& b) { return a.own > b.own; });
    return result;
}

std::string methodName(const Profile& profile, int method, bool withParameters) {
    if (method == CallTree::OnlyFiltered) {
        return "<filtered methods only>";
    }
    return profile.methods[size_t(method)].fullName(withParameters);
}

} // namespace vdk
