#include "heapfile/ObjectIdMap.h"

#include <algorithm>
#include <gtest/gtest.h>
#include <set>

namespace {

constexpr uint64_t BUDGET = 64 << 20;

void expectNumbered(const std::set<uint64_t>& ids, const ObjectIdMap& map) {
    ASSERT_EQ(ids.size(), map.size());
    uint32_t row = 0;
    for (auto id = ids.begin(); id != ids.end(); ++id) {
        ASSERT_EQ(++row, map.rowOf(*id)) << *id;
        auto next = std::next(id);
        ASSERT_EQ(next == ids.end() ? 0 : *next, map.next(*id)) << *id;
        if (ids.count(*id + 8) == 0) {
            ASSERT_EQ(0u, map.rowOf(*id + 8));
        }
        ASSERT_EQ(ids.count(*id + 1) != 0, map.rowOf(*id + 1) != 0);
    }
}

std::set<uint64_t> randomIds(int count, uint64_t mask, uint64_t base) {
    std::set<uint64_t> ids;
    uint64_t seed = 7;
    for (int i = 0; i < count; i++) {
        seed = seed * 6364136223846793005ULL + 1442695040888963407ULL;
        ids.insert(base + ((seed >> 13) & mask));
    }
    ids.erase(0);
    return ids;
}

} // namespace

TEST(ObjectIdMap, numbersIdentifiersInAscendingOrder) {
    const struct {
        std::set<uint64_t> ids;
        uint64_t budget;
        uint64_t alignment;
        uint64_t memory; // most that it may take
    } cases[] = {
        {randomIds(20000, 0x7fffff8, 0x680000000), BUDGET, 8, BUDGET},
        {randomIds(3000, 0xffff, 1), BUDGET, 1, BUDGET},
        {randomIds(3000, ~7ULL >> 8 & ~7ULL, 8), 1 << 20, 8, 2u << 20}, // too far apart for bitmaps
        {{0x10020, 0x10040, 0x50000060}, BUDGET, 32, BUDGET},
        {{}, BUDGET, 8, BUDGET},
    };
    for (const auto& c : cases) {
        ObjectIdMap::Builder builder(c.budget);
        for (uint64_t id : c.ids) {
            builder.add(id);
            builder.add(id);
        }
        ObjectIdMap map;
        map.build(builder);
        expectNumbered(c.ids, map);
        EXPECT_EQ(0u, c.ids.empty() ? map.rowOf(8) + map.next(8) : 0);
        EXPECT_EQ(c.alignment, c.ids.empty() ? 8 : map.alignment());
        EXPECT_LE(map.memory(), c.memory);
    }
}

TEST(ObjectIdMap, mergesBuildersOfAllForms) {
    for (int oddFirst = 0; oddFirst < 2; oddFirst++) {
        for (int oddSecond = 0; oddSecond < 2; oddSecond++) {
            ObjectIdMap::Builder first(BUDGET);
            ObjectIdMap::Builder second(BUDGET);
            std::set<uint64_t> ids;
            for (uint64_t i = 1; i < 1000; i++) {
                uint64_t a = 0x1000 + i * 16 + static_cast<uint64_t>(oddFirst);
                uint64_t b = 0x1008 + i * 24 + static_cast<uint64_t>(oddSecond);
                first.add(a);
                second.add(b);
                ids.insert({a, b});
            }
            first.merge(second);
            ObjectIdMap map;
            map.build(first);
            expectNumbered(ids, map);
        }
    }
}
