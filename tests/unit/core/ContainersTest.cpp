#include "core/ground/Exceptions.h"
#include "core/ground/ZMap.h"
#include "core/ground/ZSet.h"
#include "core/ground/ZString.h"
#include "core/ground/ZVector.h"

#include <gtest/gtest.h>
#include <map>
#include <random>
#include <type_traits>

namespace {

template <typename K>
K keyOf(int n) {
    if constexpr (std::is_same<K, IntTriple>::value) {
        return {n % 7, n / 7, -n};
    } else if constexpr (std::is_same<K, ExceptionKey>::value) {
        return {n, n % 3, n % 5, n % 7};
    } else if constexpr (std::is_same<K, MonitorKey>::value) {
        return {n % 3, n, n % 5, n % 7};
    } else if constexpr (std::is_pointer<K>::value) {
        return reinterpret_cast<K>(static_cast<long>(n) * 8 + 0x7f0000000000L);
    } else {
        return sizeof(K) == sizeof(int) ? n + 1 : static_cast<K>((static_cast<long>(n) << 32) - n);
    }
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
        ASSERT_LE(map.getCapacity(), 2000) << "removed slots are used again";
    }
    int walked = 0;
    for (int slot = 0; slot < map.getCapacity(); slot++) {
        walked += map.isFull(slot);
    }
    EXPECT_EQ(walked, static_cast<int>(model.size()));
    map.clear();
    EXPECT_EQ(map.getCapacity(), 3) << "as at first";
    EXPECT_EQ(map.getSize(), 0);
    EXPECT_EQ(map.getPtr(keyOf<TypeParam>(1)), nullptr);
}

TEST(ZMap, comparesTextKeysByContent) {
    ZMap<const char*, int> map(10);
    char key[] = "name";
    map.put(key, 7);
    EXPECT_EQ(map.get("name"), 7);
    EXPECT_EQ(map.get("nam"), 0);
    EXPECT_EQ(map.get(nullptr), 0);
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

// A table whose capacity is no prime may search for ever.
TEST(PrimeFinder, holdsSortedPrimes) {
    const int* primes = PrimeFinder::PRIME_CAPACITIES;
    for (int i = 0; i < PrimeFinder::PRIME_CAPACITIES_COUNT; i++) {
        for (long d = 2; d * d <= primes[i]; d++) {
            ASSERT_NE(primes[i] % d, 0) << primes[i];
        }
        ASSERT_GT(primes[i], i == 0 ? 2 : primes[i - 1]);
        ASSERT_EQ(PrimeFinder::nextPrime(primes[i]), primes[i]);
        ASSERT_EQ(PrimeFinder::nextPrime(primes[i] - 1), primes[i]);
    }
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
    for (int bad : {-1, 4}) {
        EXPECT_THROW(vector.get(bad), VDKRuntimeException);
        EXPECT_THROW(vector[bad], VDKRuntimeException);
        EXPECT_THROW(vector.set(bad, 1), VDKRuntimeException);
    }
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
        ZVector<char> vector;
        for (char c : {'0', '1', '2', '3', '4'}) {
            vector.push(c);
        }
        if (each.left == nullptr) {
            EXPECT_THROW(vector.removeRange(each.from, each.to), VDKRuntimeException);
            continue;
        }
        vector.removeRange(each.from, each.to);
        EXPECT_EQ(std::string(vector.data(), static_cast<size_t>(vector.getSize())), each.left);
    }
}

TEST(ZVectorSafe, copiesElementsByAssignment) {
    // Under the address sanitizer: growing frees what the reference leads to.
    ZVectorSafe<ZString> texts(1);
    texts.push(ZString("a text that has memory of its own"));
    for (int i = 0; i < 20; i++) {
        texts.push(texts[0]);
    }
    EXPECT_STREQ("a text that has memory of its own", texts[20].c_str());

    ZVectorSafe<ZString> names(1);
    for (const char* name : {"pear", "", "apple", "fig"}) {
        names.push(name);
    }
    names.sort();
    EXPECT_STREQ(names[0].c_str(), "");
    EXPECT_STREQ(names[3].c_str(), "pear");
}

} // namespace
