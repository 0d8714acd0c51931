#include "profiling/cpu/CallCache.h"

#include <gtest/gtest.h>
#include <map>
#include <memory>
#include <random>
#include <utility>
#include <vector>

namespace {

using Path = std::pair<int, int>; // parent and method

int frameOf(const Path& path) {
    return path.first * 1000 + path.second + 1;
}

// Rows, and a cache in front of them that is used as the traced calls use it.
struct Counted {
    auto fold() {
        return [this](const CallCache::Call& call) {
            EXPECT_EQ(call.count * 7, call.timeNs);
            rows[call.frame] += call.count;
        };
    }
    void call(const Path& path) {
        CallCache::Call* call = cache.find(path.first, path.second);
        if (call == nullptr) {
            missed++;
            rows[frameOf(path)]++;
            cache.learn(path.first, path.second, frameOf(path), fold());
            return;
        }
        ASSERT_EQ(frameOf(path), call->frame);
        ASSERT_EQ(call, cache.findAt(cache.slotOf(call), path.first, path.second));
        cache.charge(call, 1, 7);
    }
    CallCache cache;
    std::map<int, long> rows;
    long missed = 0;
};

} // namespace

// Of few paths and of many times more than there are slots; read and forgotten in between.
TEST(CallCache, everyCallIsCountedOnceWhateverGivesWay) {
    std::mt19937 random(5);
    for (const int paths : {1, 60, 4000, 40000}) {
        Counted counted;
        std::map<int, long> made;
        const int calls = paths * 2 + 50000;
        for (int i = 0; i < calls; i++) {
            const int path = static_cast<int>(random() % static_cast<unsigned>(paths));
            const Path call = {path / 900, path % 900};
            counted.call(call);
            made[frameOf(call)]++;
            if (random() % 10000 == 0) {
                counted.cache.foldAll(counted.fold());
            }
            if (random() % 1000 == 0) {
                counted.cache.foldCall(call.first, call.second, counted.fold());
                ASSERT_EQ(made[frameOf(call)], counted.rows[frameOf(call)]);
            }
            if (random() % 40000 == 0) {
                counted.cache.foldAll(counted.fold());
                counted.cache.clear();
            }
        }
        counted.cache.foldAll(counted.fold());
        EXPECT_EQ(made, counted.rows) << paths;
        counted.cache.forgetCharges();
        counted.cache.foldAll([](const CallCache::Call&) { FAIL() << "counted twice"; });
        EXPECT_LE(counted.cache.getCapacity(), CallCache::MOST_SLOTS);
        EXPECT_LE(counted.cache.getSize(), counted.cache.getCapacity() + CallCache::WINDOW);
    }
}

// Paths that fit are looked up in the tables once, not again and again.
TEST(CallCache, pathsThatFitStayKnown) {
    for (const int paths : {30, 1000, 6000}) {
        Counted counted;
        for (int round = 0; round < 20; round++) {
            for (int path = 0; path < paths; path++) {
                counted.call({path * 3, path % 17});
            }
        }
        EXPECT_LE(counted.missed, paths + paths / 10) << paths;
    }
}

TEST(CallCache, allTogetherStayBelowTheirBoundAndGiveMemoryBack) {
    std::mt19937 random(5);
    for (int again = 0; again < 2; again++) {
        std::vector<std::unique_ptr<CallCache>> caches;
        long slots = 0;
        for (int i = 0; i < 200; i++) {
            caches.push_back(std::make_unique<CallCache>());
            for (int path = 1; path <= 8000; path++) {
                caches.back()->learn(static_cast<int>(random() & 0xfffff), 1, path,
                                     [](const CallCache::Call&) {});
            }
            slots += caches.back()->getCapacity();
        }
        const long bytes = slots * static_cast<long>(sizeof(CallCache::Call));
        EXPECT_LE(bytes, CallCache::MOST_BYTES);
        EXPECT_GT(bytes, CallCache::MOST_BYTES / 2) << "the first ones keep nothing";
        EXPECT_EQ(CallCache::MOST_SLOTS, caches.front()->getCapacity());
        EXPECT_LT(caches.back()->getCapacity(), CallCache::MOST_SLOTS);
    }
}
