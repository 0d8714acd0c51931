#pragma once

#include "offline/BackwardReferences.h"
#include "offline/DominatorComputer.h"
#include "offline/HeapAnalysis.h"
#include "offline/ObjectStorage.h"
#include "offline/Reachability.h"

#include <cstdint>
#include <memory>
#include <random>
#include <utility>
#include <vector>

// A graph as plain lists, with its dominators by the definition: d dominates w if w can't be
// reached from the virtual root (0) without d. Nodes run from 1 below count.
struct TestGraph {
    explicit TestGraph(int nodeCount, std::vector<int> rootNodes = {},
                       const std::vector<std::pair<int, int>>& edges = {})
        : count(nodeCount), references(nodeCount), roots(std::move(rootNodes)) {
        for (const auto& edge : edges) {
            add(edge.first, edge.second);
        }
    }

    void add(int from, int to) { references[from].push_back(to); }

    // Rows of the storage have size 16 + row % 7 * 8.
    static int sizeOf(int row) { return 16 + row % 7 * 8; }

    std::unique_ptr<ObjectStorage> toStorage() const {
        auto storage = std::make_unique<ObjectStorage>(count, true);
        for (int row = 1; row < count; row++) {
            storage->createClass(nullptr, row, 0, sizeOf(row),
                                 static_cast<int>(references[row].size()));
            for (size_t i = 0; i < references[row].size(); i++) {
                storage->setRef(row, references[row][i], static_cast<int>(i));
            }
        }
        return storage;
    }

    // By node: reached from the roots over allowed nodes without passing through `without`.
    std::vector<bool> reachedWithout(int without) const {
        std::vector<bool> reached(count);
        std::vector<int> stack;
        const auto push = [&](int node) {
            if (node != 0 && node != without && isAllowed(node) && !reached[node]) {
                reached[node] = true;
                stack.push_back(node);
            }
        };
        for (int root : roots) {
            push(root);
        }
        while (!stack.empty()) {
            const int node = stack.back();
            stack.pop_back();
            for (int next : references[node]) {
                push(next);
            }
        }
        return reached;
    }

    // By the definition: the proper dominator that all other proper dominators dominate.
    std::vector<int> bruteForceDominators() const {
        const std::vector<bool> reached = reachedWithout(0);
        std::vector<std::vector<bool>> dominates(count, std::vector<bool>(count));
        for (int d = 1; d < count; d++) {
            if (reached[d]) {
                const std::vector<bool> still = reachedWithout(d);
                for (int w = 1; w < count; w++) {
                    dominates[d][w] = reached[w] && !still[w] && w != d;
                }
            }
        }
        // The more dominators a node has, the deeper it lies.
        std::vector<int> depths(count);
        for (int d = 1; d < count; d++) {
            for (int e = 1; e < count; e++) {
                depths[d] += dominates[e][d];
            }
        }
        std::vector<int> result(count);
        for (int w = 1; w < count; w++) {
            int depth = -1;
            for (int d = 1; d < count; d++) {
                if (dominates[d][w] && depths[d] > depth) {
                    depth = depths[d];
                    result[w] = d;
                }
            }
        }
        return result;
    }

    bool isAllowed(int node) const { return allowed.empty() || allowed[node]; }

    // All nodes allowed, or those of `allowed`.
    std::vector<int> reachableBits() const {
        std::vector<int> bits(bitFieldWords(count));
        for (int row = 1; row < count; row++) {
            if (isAllowed(row)) {
                setMark(bits.data(), row);
            }
        }
        return bits;
    }

    int count;
    std::vector<std::vector<int>> references;
    std::vector<int> roots;
    std::vector<bool> allowed; // empty for all
};

// Small random graph of one of several shapes: sparse, dense, tree with back edges, layered with
// jumps into the middle of loops (irreducible), with empty positions, duplicates, self loops, nodes
// out of reach, roots that refer to roots, and repeated roots.
inline TestGraph randomGraph(unsigned seed) {
    std::mt19937 random(seed);
    const auto below = [&](int limit) { return static_cast<int>(random() % unsigned(limit)); };
    TestGraph graph(2 + below(seed % 5 == 0 ? 40 : 12));
    const int shape = below(4);
    const int edges = shape == 0 ? graph.count : graph.count * (1 + below(4));
    for (int i = 0; i < edges; i++) {
        const int from = 1 + below(graph.count - 1);
        const int to = shape == 1 && below(3) != 0 ? std::min(graph.count - 1, from + 1 + below(3))
                                                   : below(graph.count);
        graph.add(from, to);
        if (below(8) == 0) {
            graph.add(from, to);
        }
        if (below(10) == 0) {
            graph.add(from, from);
        }
    }
    if (shape == 2) {
        for (int node = 2; node < graph.count; node++) {
            graph.add(1 + below(node - 1), node);
            if (below(3) == 0) {
                graph.add(node, 1 + below(node - 1));
            }
        }
    }
    const int rootCount = below(4) == 0 ? 1 + below(graph.count) : 1 + below(2);
    for (int i = 0; i < rootCount; i++) {
        graph.roots.push_back(1 + below(graph.count - 1));
    }
    if (below(4) == 0) {
        graph.allowed.assign(graph.count, true);
        for (int i = below(4); i >= 0; i--) {
            graph.allowed[below(graph.count)] = false;
        }
    }
    return graph;
}
