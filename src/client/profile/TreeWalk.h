// Walks a call tree without recursion: stacks of Java programs are thousands of frames deep.
#pragma once

#include "client/profile/CallTree.h"

namespace vdk {

struct TreeLimits {
    int64_t least = 0; // nodes of less total time are left out
    int maxDepth = INT32_MAX;
};

// Calls enter(node, depth) ahead of a node's children and leave(node, depth) behind them, for all
// nodes but the root, whose children have depth 0. Largest children come first.
template <typename Enter, typename Leave>
void walkTree(const CallTree& tree, const TreeLimits& limits, Enter enter, Leave leave) {
    struct Step {
        int node;
        size_t nextChild;
    };
    std::vector<Step> stack = {{0, 0}};
    while (!stack.empty()) {
        Step& step = stack.back();
        const CallTree::Node& node = tree.nodes[size_t(step.node)];
        int depth = int(stack.size()) - 1;
        bool more = step.nextChild < node.children.size() && depth < limits.maxDepth &&
                    tree.nodes[size_t(node.children[step.nextChild])].total >= limits.least;
        if (more) {
            int child = node.children[step.nextChild++];
            enter(tree.nodes[size_t(child)], depth);
            stack.push_back({child, 0});
            continue;
        }
        if (depth > 0) {
            leave(node, depth - 1);
        }
        stack.pop_back();
    }
}

} // namespace vdk
