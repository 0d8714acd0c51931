#include "offline/ObjectStorage.h"

namespace {

// How far ahead of the walk memory is fetched, in rows.
constexpr int AHEAD = 24;
constexpr int DONE = -1;

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

// Bottom-up without recursion, sorting or stack: from each row that dominates nothing, upward as
// far as all that a row dominates has added its retained size to it.
void ObjectStorage::calculateRetainedSizes() {
    const int count = objectCount;
    const Pages dominator(dominators, count);
    const Pages retained(retainedSizes, 2L * count);
    BigIntArray64 dominatedCounts("dcc"); // rows dominated that have not added theirs; DONE
    const Pages dominated(dominatedCounts, count);
    const auto prefetch = [&](const Pages& array, int row, int elements) {
        const int ahead = row + AHEAD < count ? *dominator[row + AHEAD] : 0;
        if (ahead > 0 && ahead < count) {
            __builtin_prefetch(array[static_cast<long>(elements) * ahead], 1);
        }
    };
    for (int row = 1; row < count; row++) {
        prefetch(dominated, row, 1);
        const int d = *dominator[row];
        Logger::assertTrue(d >= 0 && d < count, VDK_HERE);
        if (d != 0) {
            ++*dominated[d];
        }
    }
    for (int row = 1; row < count; row++) {
        prefetch(dominated, row, 1);
        prefetch(retained, row, 2);
        for (int above = row; above != 0 && *dominated[above] == 0;) {
            *dominated[above] = DONE;
            addLong(retained[2L * above], sizes.get(above));
            const int d = *dominator[above];
            if (d != 0) {
                addLong(retained[2L * d], longOf(retained[2L * above]));
                --*dominated[d];
            }
            above = d;
        }
    }
}
