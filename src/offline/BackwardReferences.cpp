#include "offline/BackwardReferences.h"

#include "offline/Reachability.h"
#include "offline/ScratchColumn.h"
#include "offline/ThreadTeam.h"

#include <atomic>
#include <new>

namespace {

// How far ahead of the walk memory is fetched, in references.
constexpr int AHEAD_COUNT = 24;
constexpr int AHEAD_STORE = 12;
constexpr int PROGRESS_ROWS = 1 << 18;

// What all threads share: a thread handles the references to the rows from `from` below `to`, so
// no two write to one element.
struct Build {
    const ObjectStorage& storage;
    const int* reachableBits;
    int* counts; // by row: in-degree, then the end of the row's free stretch
    RefTable* table;
    std::atomic<bool> stop;
    std::atomic<bool> badReference;
};

struct Part {
    Build* build;
    int from;
    int to;
    AnalysisProgress* progress; // null but in the first

    bool contains(int row) const { return row >= from && row < to; }
    void checkStop(const char* phase, int done) const {
        if (progress != nullptr) {
            reportProgress(progress, phase, done, build->storage.getObjectCount());
        }
        if (build->stop) {
            throw AnalysisCancelled();
        }
    }
};

// Walks the references of all marked rows from the highest row down. `ahead` of them are known to
// `fetch`, which may be given anything that lies in the page.
template <typename Fetch, typename Handle>
void walkDown(const Part& part, const char* phase, Fetch&& fetch, Handle&& handle) {
    const ObjectStorage& storage = part.build->storage;
    const int objectCount = storage.getObjectCount();
    for (int row = objectCount - 1; row > 0; row--) {
        if ((row & (PROGRESS_ROWS - 1)) == 0) {
            part.checkStop(phase, objectCount - row);
        }
        if (!isMarked(part.build->reachableBits, row)) {
            continue;
        }
        storage.getReferences().forEachPiece(row, [&](const int* page, int first, int last, int) {
            for (int i = last - 1; i >= first; i--) {
                fetch(page, i);
                handle(row, page[i]);
            }
        });
    }
}

void countReferrers(const Part& part) {
    int* counts = part.build->counts;
    const unsigned objectCount = static_cast<unsigned>(part.build->storage.getObjectCount());
    bool bad = false;
    walkDown(
        part, "referrers: counting",
        [&](const int* page, int i) {
            const int later = page[i >= AHEAD_COUNT ? i - AHEAD_COUNT : 0];
            if (part.contains(later)) {
                __builtin_prefetch(counts + later, 1);
            }
        },
        [&](int, int reference) {
            bad |= static_cast<unsigned>(reference) >= objectCount;
            if (part.contains(reference)) {
                counts[reference]++;
            }
        });
    if (bad) {
        part.build->badReference = true;
    }
}

// Stores from the end of each list downward while rows descend: lists end up in ascending order.
void storeReferrers(const Part& part) {
    int* counts = part.build->counts;
    int* const* pages = part.build->table->getReferences().pagePointers();
    const auto place = [pages](int position) {
        return pages[position >> BigIntArray64::PAGE_BITS] + (position & BigIntArray64::PAGE_MASK);
    };
    walkDown(
        part, "referrers: storing",
        [&](const int* page, int i) {
            const int later = page[i >= AHEAD_COUNT ? i - AHEAD_COUNT : 0];
            if (part.contains(later)) {
                __builtin_prefetch(counts + later, 1);
            }
            const int sooner = page[i >= AHEAD_STORE ? i - AHEAD_STORE : 0];
            if (part.contains(sooner) && counts[sooner] > 0) {
                __builtin_prefetch(place(counts[sooner] - 1), 1);
            }
        },
        [&](int row, int reference) {
            if (part.contains(reference)) {
                *place(--counts[reference]) = row;
            }
        });
}

// Allots the lists in the order of rows; counts then holds where each list ends.
RefTable* allotLists(const ObjectStorage& storage, int* counts) {
    const int objectCount = storage.getObjectCount();
    long total = 0;
    for (int row = 1; row < objectCount; row++) {
        total += counts[row];
    }
    Logger::assertTrue(total <= 0x7fffffffL, VDK_HERE);
    RefTable* table = new RefTable("brt", objectCount, RefTable::InOrder{static_cast<int>(total)});
    int next = 0;
    table->setList(0, 0, 0);
    for (int row = 1; row < objectCount; row++) {
        table->setList(row, next, counts[row]);
        next += counts[row];
        counts[row] = next;
    }
    return table;
}

// Runs the step for all parts of the rows.
void runParts(Build& build, int wanted, AnalysisProgress* progress, void (*step)(const Part&)) {
    const int objectCount = build.storage.getObjectCount();
    const int threads = wanted > 1 ? wanted : 1;
    runTeam(
        threads,
        [&](int member) {
            step(Part{&build, partBegin(1, objectCount, member, threads),
                      partBegin(1, objectCount, member + 1, threads),
                      member == 0 ? progress : nullptr});
        },
        &build.stop);
}

} // namespace

void computeBackwardReferences(ObjectStorage& storage, const int* reachableBits, int* counts,
                               int threads, AnalysisProgress* progress) {
    Logger::assertTrue(storage.getBackwardReferences() == nullptr, VDK_HERE);
    Build build{storage, reachableBits, counts, nullptr, {false}, {false}};
    runParts(build, threads, progress, countReferrers);
    Logger::assertTrue(!build.badReference, VDK_HERE);
    build.table = allotLists(storage, counts);
    try {
        runParts(build, threads, progress, storeReferrers);
    } catch (...) {
        delete build.table;
        throw;
    }
    for (int row = 1; row < storage.getObjectCount(); row++) {
        counts[row] = 0;
    }
    storage.setBackwardReferences(build.table);
}

void ensureBackwardReferences(ObjectStorage& storage, int threads, AnalysisProgress* progress) {
    if (storage.getBackwardReferences() != nullptr) {
        return;
    }
    const int words = bitFieldWords(storage.getObjectCount());
    const ScratchColumn all(words);
    for (int i = 0; i < words; i++) {
        all.get()[i] = -1;
    }
    const ScratchColumn counts(storage.getObjectCount());
    computeBackwardReferences(storage, all.get(), counts.get(), threads, progress);
}
