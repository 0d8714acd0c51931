#include "core/ground/Exceptions.h"
#include "core/ground/ZMap.h"
#include "core/ground/ZSet.h"
#include "core/ground/ZString.h"
#include "core/ground/ZVector.h"

#include <gtest/gtest.h>
#include <map>
#include <random>
#include <set>
#include <type_traits>

namespace {

// Counts copies by assignment, as a ZVectorSafe must make them.
struct Counted {
    static int assignments;
    int value = 0;
    Counted() = default;
    Counted(const Counted& other) = default;
    Counted& operator=(const Counted& other) {
        value = other.value;
        assignments++;
        return *this;
    }
};
int Counted::assignments = 0;

template <typename K>
K keyOf(int n);
template <>
int keyOf<int>(int n) {
    return n + 1;
}
template <>
long keyOf<long>(int n) {
    return (static_cast<long>(n) << 32) - n;
}
template <>
_jmethodID* keyOf<_jmethodID*>(int n) {
    return reinterpret_cast<_jmethodID*>(static_cast<long>(n) * 8 + 0x7f0000000000L);
}
template <>
IntTriple keyOf<IntTriple>(int n) {
    return {n % 7, n / 7, -n};
}
template <>
ExceptionKey keyOf<ExceptionKey>(int n) {
    return {n, n % 3, n % 5, n % 7};
}
template <>
MonitorKey keyOf<MonitorKey>(int n) {
    return {n % 3, n, n % 5, n % 7};
}

template <typename K>
class ZMapOfEveryKey : public testing::Test {};
using KeyTypes = testing::Types<int, long, _jmethodID*, IntTriple, ExceptionKey, MonitorKey>;
TYPED_TEST_SUITE(ZMapOfEveryKey, KeyTypes, );

TYPED_TEST(ZMapOfEveryKey, behavesLikeTheStandardMapUnderRandomUse) {
    ZMap<TypeParam, int> map(1);
    std::map<int, int> model;
    std::mt19937 random(20260101);
    for (int step = 0; step < 30000; step++) {
        const int n = static_cast<int>(random() % 400);
        const TypeParam key = keyOf<TypeParam>(n);
        switch (random() % 3) {
        case 0:
            map.put(key, step);
            model[n] = step;
            break;
        case 1: {
            const int expected = model.count(n) ? model[n] : 0;
            ASSERT_EQ(map.remove(key), expected);
            model.erase(n);
            break;
        }
        default:
            ASSERT_EQ(map.getPtr(key) != nullptr, model.count(n) == 1);
            ASSERT_EQ(map.get(key), model.count(n) ? model[n] : 0);
        }
        ASSERT_EQ(map.getSize(), static_cast<int>(model.size()));
        ASSERT_LE(map.getSize(), map.getMaxSize());
        ASSERT_GT(map.getFree(), 0);
    }
    int walked = 0;
    for (int slot = 0; slot < map.getCapacity(); slot++) {
        walked += map.isFull(slot);
    }
    EXPECT_EQ(walked, static_cast<int>(model.size()));
}

TEST(ZMap, comparesTextKeysByContent) {
    ZMap<const char*, int> map(10);
    char key[] = "name";
    map.put(key, 7);
    EXPECT_EQ(map.get("name"), 7);
    EXPECT_EQ(map.get("nam"), 0);
    EXPECT_EQ(zmap_hashCode("\xff"), -1) << "bytes are sign-extended";
    EXPECT_EQ(zmap_hashCode(""), 0);
    EXPECT_EQ(zmap_hashCode(static_cast<const char*>(nullptr)), 0);
}

TEST(ZMap, hashesFourFieldKeysInDifferentOrder) {
    EXPECT_EQ(zmap_hashCode(ExceptionKey{1, 2, 3, 4}), ((1 * 29 + 2) * 29 + 3) * 29 + 4);
    EXPECT_EQ(zmap_hashCode(MonitorKey{1, 2, 3, 4}), ((1 * 29 + 4) * 29 + 2) * 29 + 3);
    EXPECT_EQ(zmap_hashCode(0x1234567800000001L), 0x12345679);
}

TEST(ZMap, overwritingKeepsSizeAndClearGoesBackToTheFirstCapacity) {
    ZMap<int, int> map(1);
    EXPECT_EQ(map.getCapacity(), 3);
    for (int i = 1; i <= 100; i++) {
        map.put(i, i);
    }
    map.put(50, -50);
    EXPECT_EQ(map.getSize(), 100);
    EXPECT_EQ(map.get(50), -50);
    map.clear();
    EXPECT_EQ(map.getCapacity(), 3);
    EXPECT_EQ(map.getSize(), 0);
    EXPECT_EQ(map.getPtr(50), nullptr);
}

TEST(ZMap, putAfterRemoveReusesTheSlotAndLeavesFreeAlone) {
    ZMap<int, int> map(10);
    map.put(5, 1);
    const int free = map.getFree();
    map.remove(5);
    EXPECT_EQ(map.getFree(), free);
    map.put(5, 2);
    EXPECT_EQ(map.getFree(), free);
    EXPECT_EQ(map.getSize(), 1);
}

// Under the address sanitizer: growing frees what the reference leads to.
TEST(ZVector, takesItsOwnElementWhileItGrows) {
    ZVector<int> vector(1);
    ZVectorSafe<ZString> texts(1);
    vector.push(7);
    texts.push(ZString("a text that has memory of its own"));
    for (int i = 0; i < 20; i++) {
        vector.push(vector[0]);
        texts.push(texts[0]);
    }
    EXPECT_EQ(7, vector[20]);
    EXPECT_STREQ("a text that has memory of its own", texts[20].c_str());
}

TEST(ZMap, compactedTableOfPassingKeysStaysSmallAndQuickToSearch) {
    ZMap<int, int> map(100);
    ZSet<int> set(100);
    for (int i = 1; i <= 100000; i++) {
        map.put(i, i);
        set.add(i);
        if (i > 50) {
            map.remove(i - 50);
            map.compact();
            set.remove(i - 50);
            set.compact();
        }
        ASSERT_LE(map.getCapacity(), 311) << i;
        ASSERT_LE(set.getCapacity(), 311) << i;
        // A search for what is not there ends at a slot that was never used.
        ASSERT_GT(map.getFree(), map.getCapacity() / 10) << i;
    }
    EXPECT_EQ(map.getSize(), 50);
    EXPECT_EQ(map.get(99951), 99951);
    EXPECT_TRUE(set.contains(100000));
}

TEST(ZMap, doublesWhenRemovalsHaveUsedUpAllFreeSlots) {
    ZMap<int, int> map(3);
    const int before = map.getCapacity();
    for (int i = 1; i < 1000 && map.getCapacity() == before; i++) {
        map.put(i, i);
        map.remove(i);
    }
    EXPECT_GT(map.getCapacity(), before);
    EXPECT_EQ(map.getSize(), 0);
}

TEST(ZSet, actsAsASetAndClearsInPlace) {
    ZSet<int> set(1);
    for (int i = 1; i <= 500; i++) {
        set.add(-i);
        set.add(-i);
    }
    EXPECT_EQ(set.getSize(), 500);
    EXPECT_TRUE(set.contains(-500)) << "keys with the top bit set";
    set.remove(-500);
    EXPECT_FALSE(set.contains(-500));
    const int capacity = set.getCapacity();
    set.clear();
    EXPECT_EQ(set.getCapacity(), capacity);
    EXPECT_EQ(set.getSize(), 0);
    EXPECT_FALSE(set.contains(-1));
    EXPECT_THROW(set.contains(0), VDKRuntimeException) << "0 means no row";
    EXPECT_THROW(ZSet<int>(0), VDKRuntimeException);
}

TEST(PrimeFinder, holdsSortedPrimesWithTheFixedEnds) {
    const int* primes = PrimeFinder::PRIME_CAPACITIES;
    EXPECT_EQ(primes[0], 3);
    EXPECT_EQ(primes[19], 311);
    EXPECT_EQ(primes[PrimeFinder::PRIME_CAPACITIES_COUNT - 6], 1518310967);
    EXPECT_EQ(primes[PrimeFinder::PRIME_CAPACITIES_COUNT - 1], PrimeFinder::LARGEST_PRIME);
    for (int i = 0; i < PrimeFinder::PRIME_CAPACITIES_COUNT; i++) {
        for (long d = 2; d * d <= primes[i]; d++) {
            ASSERT_NE(primes[i] % d, 0) << primes[i];
        }
        if (i > 0) {
            ASSERT_GT(primes[i], primes[i - 1]);
        }
    }
    EXPECT_EQ(PrimeFinder::nextPrime(1), 3);
    EXPECT_EQ(PrimeFinder::nextPrime(312), primes[20]);
    EXPECT_EQ(PrimeFinder::binary_search(4), ~1);
    EXPECT_EQ(PrimeFinder::nextPrime(PrimeFinder::LARGEST_PRIME), PrimeFinder::LARGEST_PRIME);
}

TEST(ZVector, growsByDoublingAndChecksEveryIndex) {
    ZVector<int> vector(1);
    for (int i = 0; i < 5; i++) {
        vector.push(i);
    }
    EXPECT_EQ(vector.getCapacity(), 8);
    EXPECT_EQ(vector.peek(), 4);
    EXPECT_EQ(vector.pop(), 4);
    vector.set(0, 9);
    EXPECT_EQ(vector[0], 9);
    EXPECT_THROW(vector.get(-1), VDKRuntimeException);
    EXPECT_THROW(vector.get(4), VDKRuntimeException);
    EXPECT_THROW(vector[4], VDKRuntimeException);
    EXPECT_THROW(vector.set(4, 1), VDKRuntimeException);
    vector.clear();
    EXPECT_THROW(vector.pop(), VDKRuntimeException);
    EXPECT_THROW(vector.peek(), VDKRuntimeException);
    EXPECT_THROW(ZVector<int>(0), VDKRuntimeException);
}

TEST(ZVector, removesRangesAndRefusesBadOnes) {
    const struct {
        int from, to;
        const char* left; // null: refused
    } cases[] = {{0, 0, "01234"}, {5, 5, "01234"},  {1, 3, "034"},
                 {0, 5, ""},      {2, 6, nullptr},  {-1, 2, nullptr},
                 {3, 2, nullptr}, {0, -1, nullptr}, {4, 5, "0123"}};
    for (const auto& each : cases) {
        ZVector<int> vector;
        for (int i = 0; i < 5; i++) {
            vector.push(i);
        }
        if (each.left == nullptr) {
            EXPECT_THROW(vector.removeRange(each.from, each.to), VDKRuntimeException);
            continue;
        }
        vector.removeRange(each.from, each.to);
        std::string left;
        for (int i = 0; i < vector.getSize(); i++) {
            left += static_cast<char>('0' + vector[i]);
        }
        EXPECT_EQ(left, each.left);
    }
}

TEST(ZVectorSafe, copiesElementsByAssignment) {
    ZVectorSafe<Counted> vector(2);
    vector.push({});
    vector.push({});
    Counted::assignments = 0;
    vector.push({});
    EXPECT_EQ(Counted::assignments, 3) << "two moved and one stored";

    ZVectorSafe<ZString> names(1);
    for (const char* name : {"pear", "", "apple", "fig"}) {
        names.push(name);
    }
    names.sort();
    EXPECT_STREQ(names[0].c_str(), "");
    EXPECT_STREQ(names[3].c_str(), "pear");
}

} // namespace
