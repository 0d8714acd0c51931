#include "core/ground/Logger.h"
#include "offline/BackwardReferences.h"
#include "offline/DominatorComputer.h"
#include "offline/Reachability.h"

#include <gtest/gtest.h>
#include <vector>

// One large graph, by the same formula as in AnalysisCases.java: keep in sync with it.
TEST(DominatorsDigest, ofALargeGraphHaveTheDigestThatJavaSees) {
    Logger::setSink([](const char*) {});
    const int count = 300001;
    ObjectStorage storage(count, true);
    unsigned state = 12345;
    for (int row = 1; row < count; row++) {
        storage.createClass(nullptr, row, 0, 16 + row % 7 * 8, 3);
        for (int i = 0; i < 3; i++) {
            state = state * 1664525 + 1013904223;
            const int reach = static_cast<int>((state >> 8) % (i == 0 ? 3 : 50));
            storage.setRef(row, (row + reach) % count, i);
        }
    }
    const std::vector<int> roots{1, 7, 1000, 150000};
    std::vector<int> bits(bitFieldWords(count));
    ASSERT_TRUE(markReachable(nullptr, storage, roots.data(), 4, bits.data()));
    std::vector<int> counts(count);
    computeBackwardReferences(storage, bits.data(), counts.data(), 2);
    DominatorComputer computer(storage, roots.data(), 4, bits.data());
    storage.calculateRetainedSizes();
    unsigned long digest = 0;
    for (int row = 1; row < count; row++) {
        digest = digest * 31 + static_cast<unsigned long>(storage.getDominator(row));
        digest = digest * 31 + static_cast<unsigned long>(storage.getRetainedSize(row));
    }
    EXPECT_EQ(static_cast<long>(digest), 5279833249018406090L);
    Logger::setSink(nullptr);
}
