#include "BigGraphs.h"
#include "core/ground/Logger.h"
#include "offline/DominatorVerifier.h"
#include "offline/HeapAnalysis.h"

#include <cstdlib>
#include <gtest/gtest.h>

// Rows of each graph: 1 million, or VDK_BIG_GRAPH_ROWS (10000000 takes a minute).
namespace {

int rowsWanted() {
    const char* wanted = getenv("VDK_BIG_GRAPH_ROWS");
    return wanted != nullptr ? atoi(wanted) : 1000000;
}

class BigGraphs : public testing::Test {
protected:
    void SetUp() override {
        Logger::setSink([](const char*) {});
    }
    void TearDown() override { Logger::setSink(nullptr); }

    // Analyses, checks by the defining properties and gives the sum of all sizes.
    static void analyzeAndVerify(BigGraph& graph, int threads) {
        const int rootCount = static_cast<int>(graph.roots.size());
        const HeapAnalysisResult result =
            analyzeHeap(*graph.storage, graph.roots.data(), rootCount, nullptr, nullptr, threads);
        const DominatorCheck check =
            verifyDominators(*graph.storage, graph.roots.data(), rootCount, nullptr);
        ASSERT_EQ(check.violated, nullptr) << graph.name << " row " << check.row;
        EXPECT_EQ(check.direct + check.ordered + check.solved, result.reachedRows);
        EXPECT_EQ(verifyRetainedSizes(*graph.storage), 0) << graph.name;
    }
    static long sumOfSizes(const ObjectStorage& storage) {
        long sum = 0;
        for (int row = 1; row < storage.getObjectCount(); row++) {
            sum += storage.getSize(row);
        }
        return sum;
    }
};

} // namespace

TEST_F(BigGraphs, rowsOfAChainDominateTheirNext) {
    BigGraph graph = chainGraph(rowsWanted());
    analyzeAndVerify(graph, 1);
    for (int row = 2; row < graph.storage->getObjectCount(); row++) {
        ASSERT_EQ(graph.storage->getDominator(row), row - 1);
    }
    EXPECT_EQ(graph.storage->getRetainedSize(1), sumOfSizes(*graph.storage));
}

TEST_F(BigGraphs, theCentreOfAStarDominatesAll) {
    BigGraph graph = starGraph(rowsWanted());
    analyzeAndVerify(graph, 2);
    for (int row = 2; row < graph.storage->getObjectCount(); row++) {
        ASSERT_EQ(graph.storage->getDominator(row), 1);
    }
}

TEST_F(BigGraphs, parentsInATreeDominateTheirChildren) {
    BigGraph graph = parentTreeGraph(rowsWanted());
    analyzeAndVerify(graph, 2);
    for (int row = 2; row < graph.storage->getObjectCount(); row++) {
        ASSERT_EQ(graph.storage->getDominator(row), row / 2);
    }
}

TEST_F(BigGraphs, aDeepTreeWithLinksBackIsCorrect) {
    BigGraph graph = deepTreeGraph(rowsWanted());
    analyzeAndVerify(graph, 2);
    EXPECT_EQ(graph.storage->getRetainedSize(1), sumOfSizes(*graph.storage));
}

TEST_F(BigGraphs, theCornerOfAGridDominatesTheInside) {
    BigGraph graph = gridGraph(rowsWanted());
    analyzeAndVerify(graph, 1);
    int side = 1;
    while (side * side < graph.storage->getObjectCount() - 1) {
        side++;
    }
    EXPECT_EQ(graph.storage->getDominator(2), 1);
    EXPECT_EQ(graph.storage->getDominator(3), 2);
    EXPECT_EQ(graph.storage->getDominator(side + 2), 1);
    EXPECT_EQ(graph.storage->getDominator(side * side), 1);
}

TEST_F(BigGraphs, aListWithReferencesToAllFromBothEndsIsCorrect) {
    BigGraph graph = trapGraph(rowsWanted());
    analyzeAndVerify(graph, 2);
    for (int row = 2; row < graph.storage->getObjectCount(); row++) {
        ASSERT_EQ(graph.storage->getDominator(row), row < rowsWanted() ? 1 : rowsWanted() - 1);
    }
}

TEST_F(BigGraphs, manyRootsWithBucketsAreCorrect) {
    BigGraph graph = bucketTrapGraph(rowsWanted());
    analyzeAndVerify(graph, 1);
}

TEST_F(BigGraphs, aHeapWithManyKnotsIsCorrectAndTheSameOnTwoThreads) {
    BigGraph one = heapLikeGraph(rowsWanted());
    BigGraph two = heapLikeGraph(rowsWanted());
    analyzeAndVerify(one, 1);
    analyzeAndVerify(two, 2);
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
