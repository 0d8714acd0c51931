#include "TestGraph.h"
#include "core/ground/Exceptions.h"
#include "core/ground/Logger.h"
#include "offline/DominatorComputer.h"
#include "offline/DominatorVerifier.h"

#include <gtest/gtest.h>

namespace {

std::vector<std::string> ourLines;

// Computes in the order of the natives and gives the dominators.
std::vector<int> computed(const TestGraph& graph, ObjectStorage& storage) {
    const std::vector<int> bits = graph.reachableBits();
    std::vector<int> counts(graph.count);
    computeBackwardReferences(storage, bits.data(), counts.data());
    DominatorComputer computer(storage, graph.roots.data(), static_cast<int>(graph.roots.size()),
                               bits.data());
    storage.deleteBucketTable();
    storage.calculateRetainedSizes();
    storage.deleteMarkBits();
    std::vector<int> dominators(graph.count);
    for (int row = 1; row < graph.count; row++) {
        dominators[row] = storage.getDominator(row);
    }
    return dominators;
}

// The retained size of a row by its definition: what goes when the row goes.
long retainedByDefinition(const TestGraph& graph, const std::vector<bool>& reached, int row) {
    if (!reached[row]) {
        return TestGraph::sizeOf(row);
    }
    const std::vector<bool> still = graph.reachedWithout(row);
    long sum = 0;
    for (int other = 1; other < graph.count; other++) {
        sum += reached[other] && !still[other] ? TestGraph::sizeOf(other) : 0;
    }
    return sum;
}

DominatorCheck check(const TestGraph& graph, const ObjectStorage& storage) {
    const std::vector<int> bits = graph.reachableBits();
    return verifyDominators(storage, graph.roots.data(), static_cast<int>(graph.roots.size()),
                            bits.data());
}

class Dominators : public testing::Test {
protected:
    void SetUp() override {
        ourLines.clear();
        Logger::setSink([](const char* line) { ourLines.push_back(line); });
    }
    void TearDown() override { Logger::setSink(nullptr); }
};

} // namespace

TEST_F(Dominators, equalTheDefinitionOnRandomGraphs) {
    for (unsigned seed = 1; seed <= 6000; seed++) {
        const TestGraph graph = randomGraph(seed);
        auto storage = graph.toStorage();
        ASSERT_EQ(computed(graph, *storage), graph.bruteForceDominators()) << "seed " << seed;
        const DominatorCheck found = check(graph, *storage);
        ASSERT_EQ(found.violated, nullptr) << "seed " << seed << " row " << found.row;
    }
}

TEST_F(Dominators, retainedSizesEqualTheDefinitionOnRandomGraphs) {
    for (unsigned seed = 1; seed <= 1500; seed++) {
        const TestGraph graph = randomGraph(seed);
        auto storage = graph.toStorage();
        computed(graph, *storage);
        const std::vector<bool> reached = graph.reachedWithout(0);
        for (int row = 1; row < graph.count; row++) {
            ASSERT_EQ(storage->getRetainedSize(row), retainedByDefinition(graph, reached, row))
                << "seed " << seed << " row " << row;
        }
        ASSERT_EQ(verifyRetainedSizes(*storage), 0) << "seed " << seed;
    }
}

TEST_F(Dominators, ofThePaperAreThoseOfThePaper) {
    auto storage = paperGraph().toStorage();
    // By node: R A B C D E F G H I J K L; the root's is the virtual root.
    EXPECT_EQ(computed(paperGraph(), *storage),
              (std::vector<int>{0, 0, 1, 1, 1, 1, 1, 4, 4, 1, 1, 8, 1, 5}));
}

TEST_F(Dominators, ofASingleRootIsTheVirtualRoot) {
    TestGraph graph(2);
    graph.roots = {1};
    auto storage = graph.toStorage();
    EXPECT_EQ(computed(graph, *storage), (std::vector<int>{0, 0}));
    EXPECT_EQ(storage->getRetainedSize(1), TestGraph::sizeOf(1));
}

TEST_F(Dominators, ofWhatTwoRootsReferToIsTheVirtualRoot) {
    TestGraph graph(4);
    graph.roots = {1, 2};
    graph.add(1, 3);
    graph.add(2, 3);
    auto storage = graph.toStorage();
    EXPECT_EQ(computed(graph, *storage), (std::vector<int>{0, 0, 0, 0}));
}

TEST_F(Dominators, ofARootThatARootRefersToIsTheVirtualRoot) {
    TestGraph graph(3);
    graph.roots = {1, 2, 1};
    graph.add(1, 2);
    auto storage = graph.toStorage();
    EXPECT_EQ(computed(graph, *storage), (std::vector<int>{0, 0, 0}));
}

TEST_F(Dominators, leaveOutRowsWithAClearBit) {
    TestGraph graph(5);
    graph.roots = {1, 2};
    graph.add(1, 3);
    graph.add(2, 3);
    graph.add(3, 4);
    graph.allowed = {true, true, false, true, true};
    auto storage = graph.toStorage();
    EXPECT_EQ(computed(graph, *storage), (std::vector<int>{0, 0, 0, 1, 3}));
    EXPECT_EQ(storage->getRetainedSize(2), TestGraph::sizeOf(2));
}

// 1 -> 2 -> 3 -> 4 -> 5, and 1 refers to 3, 4 and 5 too: all three wait in the bucket of 1.
TEST_F(Dominators, countABucketOfThreeAsOneSet) {
    TestGraph graph(6);
    graph.roots = {1};
    for (int node = 1; node < 5; node++) {
        graph.add(node, node + 1);
        graph.add(1, node + 1);
    }
    auto storage = graph.toStorage();
    EXPECT_EQ(computed(graph, *storage), (std::vector<int>{0, 0, 1, 1, 1, 1}));
    ASSERT_EQ(ourLines.size(), 1u);
    EXPECT_NE(ourLines[0].find("dcc: stats: objects:6 sets:1 clears:1 bucketMem:"),
              std::string::npos)
        << ourLines[0];
}

TEST_F(Dominators, keepTheHighHalfOfRetainedSizes) {
    TestGraph graph(5);
    graph.roots = {1};
    for (int node = 2; node < 5; node++) {
        graph.add(1, node);
    }
    auto storage = graph.toStorage();
    for (int node = 1; node < 5; node++) {
        storage->setSize(node, 0x7fffffff);
    }
    computed(graph, *storage);
    EXPECT_EQ(storage->getRetainedSize(1), 4 * 0x7fffffffL);
    EXPECT_EQ(verifyRetainedSizes(*storage), 0);
}

TEST_F(Dominators, areTheSameWithOneThreadAndTwo) {
    for (unsigned seed = 1; seed <= 300; seed++) {
        const TestGraph graph = randomGraph(seed);
        const std::vector<int> bits = graph.reachableBits();
        std::vector<int> reached(bits.size());
        for (int threads = 1; threads <= 2; threads++) {
            auto storage = graph.toStorage();
            const HeapAnalysisResult result =
                analyzeHeap(*storage, graph.roots.data(), static_cast<int>(graph.roots.size()),
                            bits.data(), reached.data(), threads);
            const std::vector<int> expected = graph.bruteForceDominators();
            const std::vector<bool> live = graph.reachedWithout(0);
            int liveCount = 0;
            for (int row = 1; row < graph.count; row++) {
                ASSERT_EQ(storage->getDominator(row), expected[row]) << "seed " << seed;
                ASSERT_EQ(isMarked(reached.data(), row), live[row]) << "seed " << seed;
                liveCount += live[row];
            }
            ASSERT_EQ(result.reachedRows, liveCount);
        }
    }
}

TEST_F(Dominators, refuseBadRootsAndReferences) {
    TestGraph graph(4);
    const std::vector<int> bits(1, -1);
    std::vector<int> counts(4);
    for (int bad : {0, -1, 4, 0x7fffffff}) {
        auto storage = graph.toStorage();
        computeBackwardReferences(*storage, bits.data(), counts.data());
        EXPECT_THROW(DominatorComputer(*storage, &bad, 1, bits.data()), VDKRuntimeException);
    }
    graph.add(1, 2);
    graph.roots = {1};
    for (int bad : {-1, 4, 0x7fffffff}) {
        auto storage = graph.toStorage();
        storage->setRef(1, bad, 0);
        EXPECT_THROW(computeBackwardReferences(*storage, bits.data(), counts.data()),
                     VDKRuntimeException);
        EXPECT_EQ(storage->getBackwardReferences(), nullptr);
        storage->setBackwardReferences(new RefTable("brt", 4));
        EXPECT_THROW(DominatorComputer(*storage, graph.roots.data(), 1, bits.data()),
                     VDKRuntimeException);
    }
}

TEST_F(Dominators, needScratchAndBackwardReferences) {
    const int root = 1;
    const int bits = -1;
    ObjectStorage without(3, false);
    without.setBackwardReferences(new RefTable("brt", 3));
    EXPECT_THROW(DominatorComputer(without, &root, 1, &bits), VDKRuntimeException);
    ObjectStorage storage(3, true);
    EXPECT_THROW(DominatorComputer(storage, &root, 1, &bits), VDKRuntimeException);
}

namespace {

// Cancels at the n-th report.
class CancelAt : public AnalysisProgress {
public:
    explicit CancelAt(int number) : left(number) {}
    bool proceed(const char*, long, long) override { return --left >= 0; }

private:
    int left;
};

} // namespace

TEST_F(Dominators, canBeCancelledAtEveryReport) {
    const int count = 1 << 20;
    int cancelled = 0;
    for (int threads = 1; threads <= 2; threads++) {
        for (int number = 0;; number++) {
            ObjectStorage storage(count, true);
            const int root = 1;
            for (int row = 1; row < count; row++) {
                storage.createClass(nullptr, row, 0, 8, 2);
                storage.setRef(row, row + 1 < count ? row + 1 : 0, 0);
                storage.setRef(1, row, 1);
            }
            CancelAt cancel(number);
            try {
                analyzeHeap(storage, &root, 1, nullptr, nullptr, threads, &cancel);
                break;
            } catch (const AnalysisCancelled&) {
                cancelled++;
            }
            for (int row = 1; row < count; row += 1000) {
                ASSERT_GE(storage.getDominator(row), 0);
            }
        }
    }
    EXPECT_GE(cancelled, 20);
}
