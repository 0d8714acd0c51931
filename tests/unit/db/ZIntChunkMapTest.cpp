#include "db/ZIntChunkMap.h"

#include "core/ground/Exceptions.h"
#include "db/Records.h"
#include "db/ZIntChunkMap2.h"

#include <atomic>
#include <gtest/gtest.h>
#include <map>
#include <random>
#include <thread>

namespace {
FrameRecord defaultFrame() {
    return FrameRecord();
}
} // namespace

TEST(ZIntChunkMap, capacityIsChunksTimes256) {
    ZIntChunkMap<FrameRecord> map(1024, defaultFrame());
    EXPECT_EQ(5, map.getChunkCount());
    EXPECT_EQ(1280, map.getCapacity());
    ZIntChunkMap<MethodRecord> methods(10485760, MethodRecord());
    EXPECT_EQ(40961, methods.getChunkCount());
}

TEST(ZIntChunkMap, absentRecordIsNullUntilItHasAStamp) {
    ZIntChunkMap<FrameRecord> map(1024, defaultFrame());
    EXPECT_EQ(nullptr, map.getPtr(7, false));
    FrameRecord* record = map.getPtr(7, true);
    ASSERT_NE(nullptr, record);
    EXPECT_EQ(-1, record->parent);
    EXPECT_EQ(0, record->method);
    EXPECT_EQ(nullptr, map.getPtr(7, false));
    EXPECT_EQ(nullptr, map.getPtr(8, false));
    record->stamp = -3;
    EXPECT_EQ(record, map.getPtr(7, false));
}

TEST(ZIntChunkMap, growsByExactlyWhatTheKeyNeeds) {
    ZIntChunkMap<FrameRecord> map(1, defaultFrame());
    EXPECT_EQ(1, map.getChunkCount());
    EXPECT_EQ(nullptr, map.getPtr(100000, false));
    EXPECT_EQ(1, map.getChunkCount());
    map.getPtr(100000, true);
    EXPECT_EQ((100000 >> 8) + 1, map.getChunkCount());
    EXPECT_EQ(((100000 >> 8) + 1) * 256, map.getCapacity());
}

TEST(ZIntChunkMap, recordsStayInPlaceWhileTheMapGrows) {
    ZIntChunkMap<FrameRecord> map(1, defaultFrame());
    FrameRecord* first = map.getPtr(3, true);
    first->stamp = 9;
    for (int key = 256; key < 200000; key += 777) {
        map.getPtr(key, true)->stamp = key;
    }
    EXPECT_EQ(first, map.getPtr(3, false));
    EXPECT_EQ(9, first->stamp);
}

TEST(ZIntChunkMap, minKeyIsThatOfTheFirstChunk) {
    ZIntChunkMap<FrameRecord> map(1024, defaultFrame());
    EXPECT_EQ(-1, map.getMinKey());
    map.getPtr(2 * 256 + 200, true);
    EXPECT_EQ(512, map.getMinKey());
    map.freeChunk(2);
    EXPECT_EQ(-1, map.getMinKey());
    map.freeChunk(-1);
    map.freeChunk(99);
}

TEST(ZIntChunkMap, unlockedReadSeesSlotsOfExistingChunksOnly) {
    ZIntChunkMap<MethodRecord> map(100000, MethodRecord());
    EXPECT_EQ(nullptr, map.getPtrUnlocked(5));
    EXPECT_EQ(nullptr, map.getPtrUnlocked(-1));
    EXPECT_EQ(nullptr, map.getPtrUnlocked(0x7fffffff));
    MethodRecord* record = map.getPtr(5, true);
    EXPECT_EQ(record, map.getPtrUnlocked(5));
    EXPECT_EQ(record + 1, map.getPtrUnlocked(6));
}

// Run under the thread sanitizer: chunks are published whole, and the pointer array stays.
TEST(ZIntChunkMap, unlockedReaderMeetsWholeChunksOnly) {
    constexpr int KEYS = 200000;
    ZIntChunkMap<FrameRecord> map(KEYS, defaultFrame());
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

TEST(ZIntChunkMap, allocatedBytesCountPointersAndChunks) {
    ZIntChunkMap<FrameRecord> map(1024, defaultFrame());
    EXPECT_EQ(5 * 8, map.getAllocatedBytes());
    map.getPtr(0, true);
    map.getPtr(700, true);
    EXPECT_EQ(5 * 8 + 2 * 256 * 20, map.getAllocatedBytes());
}

TEST(ZIntChunkMapOfInts, absentKeyReadsAsTheDefault) {
    ZIntChunkMap<int> map(8, -1);
    EXPECT_EQ(2048, map.getCapacity());
    EXPECT_EQ(-1, map.get(0));
    EXPECT_EQ(-1, map.get(1000000));
    map.put(3, 0);
    EXPECT_EQ(0, map.get(3));
    EXPECT_EQ(-1, map.get(4));
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

TEST(ZIntChunkMap2, rowsHaveTheirOwnWords) {
    ZIntChunkMap2 map(1024, 0, 3);
    EXPECT_EQ(nullptr, map.getPtr(1, false));
    int* first = map.getPtr(0, true);
    int* second = map.getPtr(1, true);
    EXPECT_EQ(3, second - first);
    int* last = map.getPtr(255, true);
    EXPECT_EQ(3 * 255, last - first);
    second[2] = 8;
    EXPECT_EQ(nullptr, map.getPtr(1, false));
    second[0] = -1;
    EXPECT_EQ(second, map.getPtr(1, false));
}

TEST(ZIntChunkMap2, refusesEmptyCapacityAndRows) {
    EXPECT_THROW(ZIntChunkMap2(0, 0, 3), VDKRuntimeException);
    EXPECT_THROW(ZIntChunkMap2(1, 0, 0), VDKRuntimeException);
}
