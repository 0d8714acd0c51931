#include "LogLines.h"
#include "TestGraph.h"
#include "core/ground/Exceptions.h"
#include "offline/DominatorComputer.h"
#include "offline/DominatorVerifier.h"
#include "offline/SearchOrderDominators.h"

#include <algorithm>
#include <gtest/gtest.h>

namespace {

// With all of the referrers there before, which only one of the two needs.
template <typename Dominators>
void dominate(ObjectStorage& storage, const TestGraph& graph) {
    const std::vector<int> bits = graph.reachableBits();
    std::vector<int> counts(graph.count);
    computeBackwardReferences(storage, bits.data(), counts.data());
    Dominators(storage, graph.roots.data(), static_cast<int>(graph.roots.size()), bits.data());
}

template <typename Dominators>
void refuseBadRootsAndReferences() {
    TestGraph graph(4, {1}, {{1, 2}});
    const std::vector<int> bits(1, -1);
    std::vector<int> counts(4);
    for (int bad : {0, -1, 4, 0x7fffffff}) {
        auto storage = graph.toStorage();
        computeBackwardReferences(*storage, bits.data(), counts.data());
        EXPECT_THROW(Dominators(*storage, &bad, 1, bits.data()), VDKRuntimeException);
    }
    for (int bad : {-1, 4, 0x7fffffff}) {
        auto storage = graph.toStorage();
        storage->setRef(1, bad, 0);
        EXPECT_THROW(computeBackwardReferences(*storage, bits.data(), counts.data()),
                     VDKRuntimeException);
        EXPECT_EQ(storage->getBackwardReferences(), nullptr);
        storage->setBackwardReferences(new RefTable("brt", 4));
        EXPECT_THROW(Dominators(*storage, graph.roots.data(), 1, bits.data()), VDKRuntimeException);
    }
}

} // namespace

TEST(Dominators, countABucketOfThreeAsOneSetAndKeepTheHighHalfOfSizes) {
    const TestGraph graph(6, {1}, {{1, 2}, {2, 3}, {1, 3}, {3, 4}, {1, 4}, {4, 5}, {1, 5}});
    auto storage = graph.toStorage();
    for (int row = 1; row < 6; row++) {
        storage->setSize(row, 0x7fffffff);
    }
    takeLog();
    dominate<DominatorComputer>(*storage, graph);
    storage->calculateRetainedSizes();
    const std::string log = takeLog();
    EXPECT_NE(log.find("dcc: stats: objects:6 sets:1 clears:1 bucketMem:"), std::string::npos)
        << log;
    EXPECT_EQ(storage->getRetainedSize(1), 5 * 0x7fffffffL);
    EXPECT_EQ(verifyRetainedSizes(*storage), 0);
}

TEST(Dominators, equalTheDefinitionOnRandomGraphsWithAnyNumberOfThreads) {
    for (unsigned seed = 1; seed <= 3000; seed++) {
        const TestGraph graph = randomGraph(seed);
        const std::vector<int> bits = graph.reachableBits();
        const std::vector<int> expected = graph.bruteForceDominators();
        const std::vector<bool> live = graph.reachedWithout(0);
        for (int threads = 1; threads <= (seed <= 300 ? 3 : 1); threads++) {
            std::vector<int> reached(bits.size());
            auto storage = graph.toStorage();
            const int count =
                analyzeHeap(*storage, graph.roots.data(), static_cast<int>(graph.roots.size()),
                            bits.data(), reached.data(), threads);
            for (int row = 1; row < graph.count; row++) {
                ASSERT_EQ(storage->getDominator(row), expected[row]) << "seed " << seed;
                ASSERT_EQ(isMarked(reached.data(), row), live[row]) << "seed " << seed;
            }
            ASSERT_EQ(count, std::count(live.begin(), live.end(), true));
            const DominatorCheck check = verifyDominators(
                *storage, graph.roots.data(), static_cast<int>(graph.roots.size()), bits.data());
            ASSERT_EQ(check.violated, nullptr) << "seed " << seed << " row " << check.row;
            ASSERT_EQ(verifyRetainedSizes(*storage), 0) << "seed " << seed;
        }
        if (seed % 4 == 0) {
            auto storage = graph.toStorage();
            dominate<DominatorComputer>(*storage, graph);
            for (int row = 1; row < graph.count; row++) {
                ASSERT_EQ(storage->getDominator(row), expected[row]) << "seed " << seed;
            }
        }
    }
}

TEST(Dominators, refuseBadRootsAndReferences) {
    refuseBadRootsAndReferences<DominatorComputer>();
    refuseBadRootsAndReferences<SearchOrderDominators>();
}

// Long paths are compressed in a further array.
TEST(Dominators, ofALongChainWithALinkBackAreTheChain) {
    const int count = 200000;
    TestGraph graph(count, {1});
    for (int row = 1; row < count; row++) {
        graph.add(row, row + 1 < count ? row + 1 : count / 2);
        graph.add(row, row > 1 ? row - 1 : 0);
    }
    auto storage = graph.toStorage();
    dominate<SearchOrderDominators>(*storage, graph);
    for (int row = 1; row < count; row++) {
        ASSERT_EQ(storage->getDominator(row), row - 1);
    }
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

TEST(Dominators, canBeCancelledAtEveryReport) {
    const int count = 1 << 20;
    int cancelled = 0;
    for (int threads = 1; threads <= 3; threads++) {
        for (int number = 0;; number++) {
            ObjectStorage storage(count, false);
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
