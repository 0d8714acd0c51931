#include "db/ZIntChunkMap.h"

#include "core/ground/Exceptions.h"
#include "db/Records.h"

#include <atomic>
#include <gtest/gtest.h>
#include <map>
#include <random>
#include <thread>

TEST(ZIntChunkMap, absentRecordIsNullUntilItHasAStamp) {
    ZIntChunkMap<FrameRecord> map(1024, FrameRecord());
    EXPECT_EQ(-1, map.getMinKey());
    EXPECT_EQ(nullptr, map.getPtr(7, false));
    FrameRecord* record = map.getPtr(7, true);
    ASSERT_NE(nullptr, record);
    EXPECT_EQ(-1, record->parent);
    EXPECT_EQ(0, record->method);
    EXPECT_EQ(nullptr, map.getPtr(7, false));
    record->stamp = -3;
    EXPECT_EQ(record, map.getPtr(7, false));
    EXPECT_EQ(nullptr, map.getPtr(8, false));
    // Without a lock slots of existing chunks are seen, with a stamp or without.
    EXPECT_EQ(record + 1, map.getPtrUnlocked(8));
    for (int absent : {256, -1, 0x7fffffff}) {
        EXPECT_EQ(nullptr, map.getPtrUnlocked(absent));
    }
    map.freeChunk(0);
    map.freeChunk(-1);
    map.freeChunk(99);
    EXPECT_EQ(-1, map.getMinKey());
}

TEST(ZIntChunkMap, growsByExactlyWhatTheKeyNeedsWhileRecordsStayInPlace) {
    ZIntChunkMap<FrameRecord> map(1, FrameRecord());
    EXPECT_EQ(nullptr, map.getPtr(100000, false));
    EXPECT_EQ(1, map.getChunkCount());
    FrameRecord* first = map.getPtr(3, true);
    first->stamp = 9;
    for (int key = 256; key < 200000; key += 777) {
        map.getPtr(key, true)->stamp = key;
        ASSERT_EQ((key >> 8) + 1, map.getChunkCount());
    }
    EXPECT_EQ(first, map.getPtr(3, false));
    EXPECT_EQ(9, first->stamp);
    EXPECT_EQ(0, map.getMinKey());
    EXPECT_EQ(map.getChunkCount() * 256, map.getCapacity());
}

// Run under the thread sanitizer: chunks are published whole, and the pointer array stays.
TEST(ZIntChunkMap, unlockedReaderMeetsWholeChunksOnly) {
    constexpr int KEYS = 200000;
    ZIntChunkMap<FrameRecord> map(KEYS, FrameRecord());
    std::atomic<bool> done(false);
    std::atomic<long> met(0);
    std::thread reader([&] {
        while (!done || met == 0) {
            for (int key = 0; key < KEYS; key += 64) {
                const FrameRecord* record = map.getPtrUnlocked(key);
                if (record != nullptr) {
                    met++;
                    ASSERT_EQ(-1, record->firstChild);
                }
            }
        }
    });
    for (int key = 0; key < KEYS; key += 256) {
        map.getPtr(key, true);
    }
    done = true;
    reader.join();
    EXPECT_GT(met, 0);
}

TEST(ZIntChunkMapOfInts, writingTheDefaultBeyondTheCapacityAllocatesNothing) {
    ZIntChunkMap<int> map(8, -1);
    const long bytes = map.getAllocatedBytes();
    map.put(1000000, -1);
    EXPECT_EQ(8, map.getChunkCount());
    EXPECT_EQ(bytes, map.getAllocatedBytes());
    map.put(1000000, 7);
    EXPECT_EQ(5860, map.getChunkCount());
    EXPECT_EQ(7, map.get(1000000));
}

TEST(ZIntChunkMapOfInts, keysBeyondTheRangeOfTheGrowthFormulaWork) {
    ZIntChunkMap<int> map(8, -1);
    EXPECT_EQ(-1, map.get(1000000));
    // Three times this key leaves the range of int.
    map.put(800000000, 5);
    EXPECT_EQ(5, map.get(800000000));
    EXPECT_GT(map.getChunkCount(), 800000000 >> 8);
}

TEST(ZIntChunkMapOfInts, agreesWithAModelOnRandomKeys) {
    ZIntChunkMap<int> map(8, -1);
    std::map<int, int> model;
    std::mt19937 random(42);
    for (int i = 0; i < 20000; i++) {
        const int key = static_cast<int>(random() % 300000);
        const int value = static_cast<int>(random() % 5) - 1;
        map.put(key, value);
        model[key] = value;
        const int probe = static_cast<int>(random() % 300000);
        const auto known = model.find(probe);
        ASSERT_EQ(known == model.end() ? -1 : known->second, map.get(probe));
    }
}
