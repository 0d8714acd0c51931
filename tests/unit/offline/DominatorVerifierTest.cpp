#include "offline/DominatorVerifier.h"

#include "LogLines.h"
#include "TestGraph.h"

#include <gtest/gtest.h>

namespace {

DominatorCheck check(const TestGraph& graph, const ObjectStorage& storage) {
    const std::vector<int> bits = graph.reachableBits();
    return verifyDominators(storage, graph.roots.data(), static_cast<int>(graph.roots.size()),
                            bits.data());
}

} // namespace

// The dominator tree is unique, so every other value for any row is wrong.
TEST(Verifier, refusesEveryOtherTreeOnRandomGraphs) {
    int refused = 0;
    for (unsigned seed = 1; seed <= 1200; seed++) {
        const TestGraph graph = randomGraph(seed);
        const std::vector<int> right = graph.bruteForceDominators();
        auto storage = graph.toStorage();
        for (int row = 1; row < graph.count; row++) {
            storage->setDominator(row, right[row]);
        }
        ASSERT_EQ(check(graph, *storage).violated, nullptr) << "seed " << seed;
        for (int row = 1; row < graph.count; row++) {
            for (int other = -1; other <= graph.count; other++) {
                if (other == right[row]) {
                    continue;
                }
                storage->setDominator(row, other);
                ASSERT_NE(check(graph, *storage).violated, nullptr)
                    << "seed " << seed << ": " << row << " below " << other;
                refused++;
            }
            storage->setDominator(row, right[row]);
        }
    }
    EXPECT_GT(refused, 100000);
}

// Moving a whole row of siblings up one level keeps the parent property: only the sibling property
// tells, in acyclic graphs, loops and knots.
TEST(Verifier, refusesTreesThatAreTooFlat) {
    int refused = 0;
    for (unsigned seed = 1; seed <= 3000; seed++) {
        const TestGraph graph = randomGraph(seed);
        const std::vector<int> right = graph.bruteForceDominators();
        auto storage = graph.toStorage();
        for (int moved = 1; moved < graph.count; moved++) {
            bool changed = false;
            for (int row = 1; row < graph.count; row++) {
                const bool move = right[row] == moved;
                storage->setDominator(row, move ? right[moved] : right[row]);
                changed |= move;
            }
            if (changed) {
                ASSERT_NE(check(graph, *storage).violated, nullptr) << "seed " << seed;
                refused++;
            }
        }
    }
    EXPECT_GT(refused, 3000);
}

// Two rows that refer to each other below different siblings: neither can be ordered first.
TEST(Verifier, solvesKnots) {
    TestGraph graph(6, {1}, {{1, 2}, {1, 3}, {2, 4}, {3, 5}, {4, 5}, {5, 4}});
    auto storage = graph.toStorage();
    const int dominators[] = {0, 0, 1, 1, 1, 1};
    for (int row = 1; row < 6; row++) {
        storage->setDominator(row, dominators[row]);
    }
    const DominatorCheck right = check(graph, *storage);
    EXPECT_EQ(right.violated, nullptr);
    EXPECT_EQ(right.direct, 3);
    EXPECT_EQ(right.solved, 2);
    graph.references[3].clear(); // now 2 dominates both
    graph.add(2, 5);
    auto changed = graph.toStorage();
    for (int row = 1; row < 6; row++) {
        changed->setDominator(row, dominators[row]);
    }
    EXPECT_STREQ(check(graph, *changed).violated, "no row dominates a sibling");
}

TEST(Verifier, findsAWrongRetainedSize) {
    const TestGraph graph(5, {1}, {{1, 2}, {2, 3}, {3, 4}, {2, 4}});
    auto storage = graph.toStorage();
    analyzeHeap(*storage, graph.roots.data(), 1, nullptr, nullptr, 1);
    EXPECT_EQ(verifyRetainedSizes(*storage), 0);
    storage->setRetainedSize(3, storage->getRetainedSize(3) + 8);
    EXPECT_NE(verifyRetainedSizes(*storage), 0);
}
