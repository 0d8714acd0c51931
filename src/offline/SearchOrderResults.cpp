#include "offline/SearchOrderResults.h"

#include "offline/MemAllocator.h"
#include "offline/ThreadTeam.h"

#include <atomic>
#include <cstring>

namespace {

constexpr int VIRTUAL_ROOT = 1;
// How far ahead of the walk memory is fetched, in numbers.
constexpr int AHEAD_RESULT = 24;
constexpr int AHEAD_DOMINATOR = 48;
constexpr int PROGRESS_STEPS = 1 << 18;
constexpr int BLOCK_BITS = 12;

// 64-bit sums by number, taken from the system as they are needed, with a mark for each block of
// them that is in use. Any number of threads may add.
class SumsAside {
public:
    explicit SumsAside(int numbers)
        : bytes(static_cast<size_t>(numbers) * sizeof(long)), blocks((numbers >> BLOCK_BITS) + 1),
          sums(static_cast<long*>(MemAllocator::allocateZeroed(bytes, false))) {
        try {
            inUse = static_cast<bool*>(MemAllocator::allocateZeroed(static_cast<size_t>(blocks)));
        } catch (...) {
            MemAllocator::release(sums, bytes);
            throw;
        }
    }
    ~SumsAside() {
        MemAllocator::release(sums, bytes);
        MemAllocator::release(inUse, static_cast<size_t>(blocks));
    }
    SumsAside(const SumsAside&) = delete;
    SumsAside& operator=(const SumsAside&) = delete;

    void add(int number, long value) {
        __atomic_fetch_add(sums + number, value, __ATOMIC_RELAXED);
        __atomic_store_n(inUse + (number >> BLOCK_BITS), true, __ATOMIC_RELAXED);
    }
    // Calls visit(number, sum) for each sum other than 0, from the highest number below `end` down.
    // It may add to lower ones.
    template <typename Visit>
    void drain(int end, Visit&& visit) {
        for (int block = (end - 1) >> BLOCK_BITS; block >= 0; block--) {
            if (!inUse[block]) {
                continue;
            }
            const int first = block << BLOCK_BITS;
            const int behind = end - first < 1 << BLOCK_BITS ? end : first + (1 << BLOCK_BITS);
            for (int number = behind - 1; number >= first; number--) {
                if (sums[number] != 0) {
                    visit(number, sums[number]);
                }
            }
        }
    }

private:
    const size_t bytes;
    const int blocks;
    long* const sums;
    bool* inUse = nullptr;
};

class Results {
public:
    Results(ObjectStorage& analyzed, const SearchOrder& searchOrder, int threadCount,
            AnalysisProgress* told)
        : storage(analyzed), order(searchOrder), threads(threadCount), progress(told),
          objectCount(analyzed.getObjectCount()) {
        BigIntArray64& dominators = *storage.arrayOfKind(READ_DOMINATORS);
        for (int from = 0; from < objectCount; from += BigIntArray64::PAGE_SIZE) {
            int* const known = dominators.getBuffer(from, false);
            if (known != nullptr) {
                memset(known, 0, BigIntArray64::PAGE_BYTES);
            }
        }
        dominators.ensure(objectCount);
        storage.arrayOfKind(READ_SIZES)->ensure(objectCount);
        storage.arrayOfKind(READ_RETAINED_SIZES)->ensure(2L * objectCount);
        dominatorPages = dominators.pagePointers();
        sizePages = storage.arrayOfKind(READ_SIZES)->pagePointers();
        retainedPages = storage.arrayOfKind(READ_RETAINED_SIZES)->pagePointers();
    }

    void store() {
        const int lowest = firstOf(threads - 1);
        SumsAside aside(threads > 1 ? lowest : 1);
        std::atomic<bool> stop{false};
        runTeam(
            threads, [&](int member) { beginWithOwnSizes(member); }, &stop);
        runTeam(
            threads, [&](int member) { sumPart(member, aside, stop); }, &stop);
        if (threads == 1) {
            return;
        }
        aside.drain(lowest, [&](int number, long sum) {
            addTo(order.rows[number], sum);
            if (order.dominators[number] != VIRTUAL_ROOT) {
                aside.add(order.dominators[number], sum);
            }
        });
    }

private:
    int firstOf(int member) const {
        return partBegin(VIRTUAL_ROOT + 1, order.last + 1, member, threads);
    }
    int* dominatorOf(int row) const {
        return dominatorPages[row >> BigIntArray64::PAGE_BITS] + (row & BigIntArray64::PAGE_MASK);
    }
    // High half and low half.
    int* retainedOf(int row) const {
        const long at = 2L * row;
        return retainedPages[at >> BigIntArray64::PAGE_BITS] + (at & BigIntArray64::PAGE_MASK);
    }
    long get(int row) const {
        const int* const halves = retainedOf(row);
        return static_cast<long>(static_cast<unsigned long>(static_cast<unsigned>(halves[0]))
                                     << 32 |
                                 static_cast<unsigned>(halves[1]));
    }
    void put(int row, long value) const {
        int* const halves = retainedOf(row);
        halves[0] = static_cast<int>(value >> 32);
        halves[1] = static_cast<int>(value);
    }
    void addTo(int row, long value) const { put(row, get(row) + value); }

    void beginWithOwnSizes(int member) const {
        const int end = partBegin(1, objectCount, member + 1, threads);
        for (int row = partBegin(1, objectCount, member, threads); row < end; row++) {
            put(row, sizePages[row >> BigIntArray64::PAGE_BITS][row & BigIntArray64::PAGE_MASK]);
        }
    }

    void sumPart(int member, SumsAside& aside, const std::atomic<bool>& stop) const {
        const int begin = firstOf(member);
        // What goes to one node of a lower part often comes in a row.
        int asideNumber = VIRTUAL_ROOT;
        long asideSum = 0;
        const auto putAside = [&] {
            if (asideNumber != VIRTUAL_ROOT) {
                aside.add(asideNumber, asideSum);
            }
        };
        for (int number = firstOf(member + 1) - 1; number >= begin; number--) {
            if ((number & (PROGRESS_STEPS - 1)) == 0) {
                reportProgress(member == 0 ? progress : nullptr, "retained sizes",
                               firstOf(1) - number, firstOf(1));
                if (stop) {
                    throw AnalysisCancelled();
                }
            }
            fetchAhead(number);
            const int row = order.rows[number];
            const int dominator = order.dominators[number];
            *dominatorOf(row) = order.rows[dominator];
            if (dominator >= begin) {
                addTo(order.rows[dominator], get(row));
            } else if (dominator != VIRTUAL_ROOT) {
                if (dominator != asideNumber) {
                    putAside();
                    asideNumber = dominator;
                    asideSum = 0;
                }
                asideSum += get(row);
            }
        }
        putAside();
    }
    void fetchAhead(int number) const {
        const int soon = number > AHEAD_RESULT ? number - AHEAD_RESULT : VIRTUAL_ROOT;
        const int later = number > AHEAD_DOMINATOR ? number - AHEAD_DOMINATOR : VIRTUAL_ROOT;
        __builtin_prefetch(order.rows + order.dominators[later]);
        __builtin_prefetch(dominatorOf(order.rows[soon]), 1);
        __builtin_prefetch(retainedOf(order.rows[soon]), 1);
        __builtin_prefetch(retainedOf(order.rows[order.dominators[soon]]), 1);
    }

    ObjectStorage& storage;
    const SearchOrder order;
    const int threads;
    AnalysisProgress* const progress;
    const int objectCount;
    int* const* dominatorPages = nullptr;
    int* const* sizePages = nullptr;
    int* const* retainedPages = nullptr;
};

} // namespace

void storeSearchOrder(ObjectStorage& storage, const SearchOrder& order, int threads,
                      AnalysisProgress* progress) {
    Results(storage, order, threads, progress).store();
}
