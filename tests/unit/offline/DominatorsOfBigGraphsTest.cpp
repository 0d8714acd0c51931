#include "BigGraphs.h"
#include "LogLines.h"
#include "offline/BackwardReferences.h"
#include "offline/DominatorVerifier.h"
#include "offline/HeapAnalysis.h"

#include <cmath>
#include <cstdlib>
#include <functional>
#include <gtest/gtest.h>

// Rows of each graph: 1 million, or VDK_BIG_GRAPH_ROWS (10000000 takes a minute).
namespace {

int rowsWanted() {
    const char* wanted = getenv("VDK_BIG_GRAPH_ROWS");
    return wanted != nullptr ? atoi(wanted) : 1000000;
}

// Analyses and checks by the defining properties.
void analyzeAndVerify(BigGraph& graph, int threads) {
    const int rootCount = static_cast<int>(graph.roots.size());
    const int reached =
        analyzeHeap(*graph.storage, graph.roots.data(), rootCount, nullptr, nullptr, threads);
    const DominatorCheck check =
        verifyDominators(*graph.storage, graph.roots.data(), rootCount, nullptr);
    ASSERT_EQ(check.violated, nullptr) << graph.name << " row " << check.row;
    EXPECT_EQ(check.direct + check.ordered + check.solved, reached);
    EXPECT_EQ(verifyRetainedSizes(*graph.storage), 0) << graph.name;
}

} // namespace

TEST(BigGraphs, ofKnownShapesHaveTheDominatorsOfTheirShape) {
    const int rows = rowsWanted();
    const int side = static_cast<int>(std::sqrt(rows));
    const struct {
        BigGraph (*make)(int rows);
        int threads;
        std::function<int(int row)> dominator; // -1: only the properties are checked
    } cases[] = {
        {chainGraph, 3, [](int row) { return row - 1; }},
        {starGraph, 2, [](int row) { return row == 1 ? 0 : 1; }},
        {parentTreeGraph, 2, [](int row) { return row / 2; }},
        {deepTreeGraph, 3, [](int row) { return row == 1 ? 0 : -1; }},
        {gridGraph, 4,
         [&](int row) {
             const bool border = row <= side || row % side == 1;
             return row == 1 ? 0 : !border ? 1 : row <= side ? row - 1 : row - side;
         }},
        {trapGraph, 2, [&](int row) { return row == 1     ? 0
                                             : row < rows ? 1
                                                          : rows - 1; }},
        {bucketTrapGraph, 1, [](int) { return -1; }},
    };
    for (const auto& c : cases) {
        BigGraph graph = c.make(rows);
        analyzeAndVerify(graph, c.threads);
        for (int row = 1; row < graph.storage->getObjectCount(); row++) {
            const int expected = c.dominator(row);
            ASSERT_TRUE(expected == -1 || expected == graph.storage->getDominator(row))
                << graph.name << " row " << row;
        }
    }
}

TEST(BigGraphs, aHeapWithManyKnotsIsCorrectAndTheSameOnTwoThreads) {
    BigGraph one = heapLikeGraph(rowsWanted());
    BigGraph two = heapLikeGraph(rowsWanted());
    analyzeAndVerify(one, 1);
    analyzeAndVerify(two, 2);
    ensureBackwardReferences(*one.storage, 1);
    ensureBackwardReferences(*two.storage, 2);
    for (int row = 1; row < one.storage->getObjectCount(); row++) {
        ASSERT_EQ(one.storage->getDominator(row), two.storage->getDominator(row));
        ASSERT_EQ(one.storage->getRetainedSize(row), two.storage->getRetainedSize(row));
        const RefTable& left = *one.storage->getBackwardReferences();
        const RefTable& right = *two.storage->getBackwardReferences();
        ASSERT_EQ(left.getCount(row), right.getCount(row));
        for (int i = 0; i < left.getCount(row); i++) {
            ASSERT_EQ(left.getRef(row, i), right.getRef(row, i));
        }
    }
}
