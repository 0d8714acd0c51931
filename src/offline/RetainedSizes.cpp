#include "offline/ObjectStorage.h"

namespace {

// How far ahead of the walk memory is fetched, in rows.
constexpr int AHEAD_FAR = 24;
constexpr int AHEAD_NEAR = 12;

// Element access to an array whose pages up to the object count all exist.
class Pages {
public:
    Pages(BigIntArray64& array, long elements) {
        array.ensure(elements);
        pages = array.pagePointers();
    }
    int* operator[](long index) const {
        return pages[index >> BigIntArray64::PAGE_BITS] + (index & BigIntArray64::PAGE_MASK);
    }

private:
    int* const* pages;
};

// Adds to a 64-bit value held high half first.
void addLong(int* halves, long value) {
    const unsigned long before = static_cast<unsigned long>(static_cast<unsigned>(halves[0]))
                                     << 32 |
                                 static_cast<unsigned>(halves[1]);
    const unsigned long sum = before + static_cast<unsigned long>(value);
    halves[0] = static_cast<int>(sum >> 32);
    halves[1] = static_cast<int>(sum);
}

long longOf(const int* halves) {
    return static_cast<long>(static_cast<unsigned long>(static_cast<unsigned>(halves[0])) << 32 |
                             static_cast<unsigned>(halves[1]));
}

} // namespace

// Bottom-up without recursion and sorting: a row is on the stack once all rows that it dominates
// have added their retained sizes to it.
void ObjectStorage::calculateRetainedSizes() {
    const int count = objectCount;
    const Pages dominator(dominators, count);
    const Pages retained(retainedSizes, 2L * count);
    BigIntArray64 dominatedCounts("dcc");
    const Pages dominated(dominatedCounts, count);
    for (int row = 1; row < count; row++) {
        const int ahead = row + AHEAD_FAR < count ? *dominator[row + AHEAD_FAR] : 0;
        if (ahead > 0 && ahead < count) {
            __builtin_prefetch(dominated[ahead], 1);
        }
        const int d = *dominator[row];
        Logger::assertTrue(d >= 0 && d < count, "RetainedSizes", __LINE__);
        if (d != 0) {
            ++*dominated[d];
        }
    }
    BigIntArray64 stack("frnt");
    int depth = 0;
    for (int row = 1; row < count; row++) {
        if (*dominated[row] == 0) {
            stack.set(depth++, row);
        }
    }
    while (depth > 0) {
        const int far = stack.get(depth > AHEAD_FAR ? depth - AHEAD_FAR : 0);
        __builtin_prefetch(dominator[far]);
        const int near = *dominator[stack.get(depth > AHEAD_NEAR ? depth - AHEAD_NEAR : 0)];
        __builtin_prefetch(dominated[near], 1);
        __builtin_prefetch(retained[2L * near], 1);
        const int row = stack.get(--depth);
        addLong(retained[2L * row], sizes.get(row));
        const int d = *dominator[row];
        if (d != 0) {
            addLong(retained[2L * d], longOf(retained[2L * row]));
            if (--*dominated[d] == 0) {
                stack.set(depth++, d);
            }
        }
    }
}
