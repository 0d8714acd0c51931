#include "offline/SearchOrderDominators.h"

#include "offline/Reachability.h"
#include "offline/ThreadPair.h"

#include <atomic>
#include <cstring>
#include <initializer_list>

// Source of the algorithm: T. Lengauer and R. E. Tarjan, "A fast algorithm for finding dominators
// in a flowgraph", ACM TOPLAS 1(1), 1979.

namespace {

// How far ahead of the walk memory is fetched, in references.
constexpr int AHEAD_NUMBER = 16;
constexpr int AHEAD_CURSOR = 16;
constexpr int AHEAD_STORE = 16;
constexpr int AHEAD_SOURCE = 12;
constexpr int AHEAD_NODE = 32;
constexpr int PROGRESS_STEPS = 1 << 18;
constexpr int VIRTUAL_ROOT = 1;
// Steps of a path that are kept without the paged array.
constexpr int SHORT_PATH = 64;

// A bit for each element that an array can have in its pages.
long wordsFor(const BigIntArray64& array) {
    return static_cast<long>(array.getPageCount()) * (BigIntArray64::PAGE_SIZE / 32);
}

// What goes in comes out so many steps later. At first zeros do.
template <typename T, int STEPS>
class Delay {
public:
    T exchange(T entering) {
        T& place = ring[at++ % STEPS];
        const T leaving = place;
        place = entering;
        return leaving;
    }

private:
    T ring[STEPS] = {};
    unsigned at = 0;
};

// A reference on its way to a list; source 0 stands for none.
struct Passing {
    int source; // a number
    int target; // a row, a number, or a place in the lists
};

} // namespace

// The rows of which a thread collects the sources, and where each list goes on for it, by number.
struct SearchOrderDominators::Half {
    int from;
    int to;
    int* cursors;
    AnalysisProgress* progress; // null in the second thread
    std::atomic<bool>* stop;
};

// One number more than there are rows: the virtual root has one.
SearchOrderDominators::SearchOrderDominators(ObjectStorage& analysed, const int* roots,
                                             int rootCount, const int* reachableBits, int threads,
                                             AnalysisProgress* told, AfterSearch* afterSearch)
    : storage(analysed), progress(told), objectCount(analysed.getObjectCount()),
      reached(bitFieldWords(objectCount)),
      followed(wordsFor(storage.getReferences().getReferences())),
      rootRows(bitFieldWords(objectCount)), numbers(objectCount), parents(objectCount + 1L),
      path("sod") {
    search(roots, rootCount, reinterpret_cast<const unsigned*>(reachableBits));
    if (afterSearch != nullptr) {
        afterSearch->searchEnded();
    }
    collectSources(threads);
    invertNumbers();
    labels.allot(objectCount + 1L);
    computeSemidominators();
    parents.drop();
    labels.drop();
    sources.drop();
    finishDominators();
    storeDominators();
    rows.drop();
    dominators.drop();
}

void SearchOrderDominators::copyReached(int* bits) const {
    memcpy(bits, reached.get(), static_cast<size_t>(bitFieldWords(objectCount)) * sizeof(int));
}

void SearchOrderDominators::visit(int row, int parentRow) {
    const int number = ++last;
    parents.get()[number] = numbers.get()[parentRow];
    numbers.get()[row] = number;
    if ((number & (PROGRESS_STEPS - 1)) == 0) {
        reportProgress(progress, "depth-first search", number, objectCount);
    }
}

void SearchOrderDominators::search(const int* roots, int rootCount, const unsigned* reachableBits) {
    unsigned* const bits = reached.bits();
    Search::excludeAllBut(reachableBits, objectCount, bits);
    visit(0, 0);
    Search found(storage.getReferences(), objectCount, bits, *this);
    for (int i = 0; i < rootCount; i++) {
        Logger::assertTrue(roots[i] > 0 && roots[i] < objectCount, VDK_HERE);
        Search::setBit(rootRows.bits(), roots[i]);
        found.searchFrom(roots[i], 0);
    }
    for (int i = 0; i < rootCount; i++) {
        const int number = numbers.get()[roots[i]];
        int& parent = parents.get()[number];
        if (number != 0 && parent > VIRTUAL_ROOT) {
            parent = ~parent;
        }
    }
    for (int i = 0; i < bitFieldWords(objectCount); i++) {
        bits[i] &= reachableBits[i];
    }
    bits[0] &= ~1U;
}

// Counts the sources of each node, places the lists by number, and stores the sources. Within a
// list those of the lower half of the rows come first.
void SearchOrderDominators::collectSources(int threads) {
    const bool paired = threads > 1;
    ScratchColumn upperCursors;
    labels.allot(objectCount + 1L);
    if (paired) {
        upperCursors.allot(objectCount + 1L);
    }
    std::atomic<bool> stop{false};
    const int middle = paired ? objectCount / 2 + 1 : objectCount;
    const Half lower{1, middle, labels.get(), progress, &stop};
    const Half upper{middle, objectCount, upperCursors.get(), nullptr, &stop};
    const auto inHalves = [&](void (SearchOrderDominators::*step)(const Half&) const) {
        if (paired) {
            runPair([&] { (this->*step)(upper); }, [&] { (this->*step)(lower); }, &stop);
        } else {
            (this->*step)(lower);
        }
    };
    inHalves(&SearchOrderDominators::countSources);
    long firstSemi = 0;
    for (int number = VIRTUAL_ROOT + 1; number <= last; number++) {
        const long needed = static_cast<long>(sourceCount) - number;
        firstSemi = needed > firstSemi ? needed : firstSemi;
        for (int* cursors : {labels.get(), upperCursors.get()}) {
            if (cursors != nullptr) {
                const int count = cursors[number];
                cursors[number] = sourceCount;
                sourceCount += count;
            }
        }
    }
    const long semisEnd = firstSemi + last + 1;
    sources.allot(semisEnd > sourceCount ? semisEnd : sourceCount);
    semi = sources.get() + firstSemi;
    inHalves(&SearchOrderDominators::storeSources);
    rootRows.drop();
    followed.drop();
    // The ends of the lists become the starts of the next ones.
    dominators.take(paired ? upperCursors : labels);
    labels.drop();
    if (last > VIRTUAL_ROOT) {
        int* const starts = dominators.get() + VIRTUAL_ROOT + 1;
        memmove(starts + 1, starts, static_cast<size_t>(last - VIRTUAL_ROOT - 1) * sizeof(int));
        starts[0] = 0;
    }
}

// The rows by number.
void SearchOrderDominators::invertNumbers() {
    rows.allot(objectCount + 1L);
    const int* const numberOf = numbers.get();
    for (int row = 1; row < objectCount; row++) {
        __builtin_prefetch(
            rows.get() + numberOf[row < objectCount - AHEAD_NODE ? row + AHEAD_NODE : 0], 1);
        rows.get()[numberOf[row]] = row;
    }
    // Of the rows without a number one stands there; the virtual root's is 0.
    rows.get()[0] = 0;
    numbers.drop();
}

// Calls handle(source, target) with the numbers of both ends of each reference that decides
// anything, and some steps ahead fetches the target's cursor; also with sources of 0, which tell of
// nothing, until all that is delayed by `handle` must be through.
template <typename Handle>
void SearchOrderDominators::walkSources(const Half& half, const char* phase,
                                        Handle&& handle) const {
    const int* const numberOf = numbers.get();
    const RefTable& references = storage.getReferences();
    Delay<Passing, AHEAD_NUMBER> toNumber;
    Delay<Passing, AHEAD_CURSOR> toCursor;
    const auto pass = [&](int source, int targetRow) {
        __builtin_prefetch(numberOf + targetRow);
        Passing passing = toNumber.exchange({source, targetRow});
        passing.target = numberOf[passing.target];
        __builtin_prefetch(half.cursors + passing.target, 1);
        passing = toCursor.exchange(passing);
        // Number 0: left out by the caller.
        const bool counts = passing.target != 0 && passing.target != passing.source;
        handle(counts ? passing.source : 0, passing.target);
    };
    for (int row = half.from; row < half.to; row++) {
        if ((row & (PROGRESS_STEPS - 1)) == 0) {
            reportProgress(half.progress, phase, row - half.from, half.to - half.from);
            if (*half.stop) {
                throw AnalysisCancelled();
            }
        }
        const int source = numberOf[row];
        if (source == 0) {
            continue;
        }
        references.forEachPiece(row, [&](const int* page, int first, int end, int pageStart) {
            for (int i = first; i < end; i++) {
                if (page[i] != 0 && !wasFollowed(pageStart + i) &&
                    !Search::isSet(rootRows.bits(), page[i])) {
                    pass(source, page[i]);
                }
            }
        });
    }
    for (int i = 0; i < AHEAD_NUMBER + AHEAD_CURSOR + AHEAD_STORE; i++) {
        pass(0, 0);
    }
}

void SearchOrderDominators::countSources(const Half& half) const {
    walkSources(half, "sources: counting",
                [&](int source, int target) { half.cursors[target] += source != 0 ? 1 : 0; });
}

void SearchOrderDominators::storeSources(const Half& half) const {
    int* const stored = sources.get();
    Delay<Passing, AHEAD_STORE> toPlace;
    walkSources(half, "sources: storing", [&](int source, int target) {
        const int place = source != 0 ? half.cursors[target]++ : 0;
        __builtin_prefetch(stored + place, 1);
        const Passing passing = toPlace.exchange({source, place});
        if (passing.source != 0) {
            stored[passing.target] = passing.source;
        }
    });
}

// From the last number to the first; number 1 has nothing above it.
void SearchOrderDominators::computeSemidominators() {
    int* const parent = parents.get();
    int* const label = labels.get();
    int* const dominator = dominators.get();
    int end = sourceCount;
    for (int number = last; number > VIRTUAL_ROOT; number--) {
        if ((number & (PROGRESS_STEPS - 1)) == 0) {
            reportProgress(progress, "dominators", last - number, last);
        }
        const int begin = dominator[number];
        int least = VIRTUAL_ROOT;
        if (parent[number] < 0) {
            parent[number] = ~parent[number];
        } else {
            least = smallestOfSources(number, parent[number], begin, end);
        }
        end = begin;
        const int above = parent[number];
        semi[number] = least;
        label[number] = number;
        if (least == above || least == VIRTUAL_ROOT) {
            // Nothing lies between, or nothing can have a smaller semidominator.
            dominator[number] = least;
        } else {
            dominator[number] = label[least];
            label[least] = number;
        }
        emptyBucket(above, number);
    }
}

// Lists are walked from their end, as they follow one another.
int SearchOrderDominators::smallestOfSources(int number, int least, int begin, int end) {
    const int* const list = sources.get();
    for (int i = end - 1; i >= begin && least > VIRTUAL_ROOT; i--) {
        const int later = list[i >= AHEAD_SOURCE ? i - AHEAD_SOURCE : 0];
        if (later > number) {
            __builtin_prefetch(parents.get() + later, 1);
            __builtin_prefetch(labels.get() + later, 1);
        }
        int candidate = list[i];
        if (candidate > number) {
            candidate = semi[eval(candidate, number + 1)];
        }
        least = candidate < least ? candidate : least;
    }
    return least;
}

// The node is the owner of the semidominators in its bucket. Numbers from `processed` on are
// linked.
void SearchOrderDominators::emptyBucket(int owner, int processed) {
    int* const dominator = dominators.get();
    int member = labels.get()[owner];
    labels.get()[owner] = 0;
    while (member != 0) {
        const int next = dominator[member];
        const int smallest = eval(member, processed);
        dominator[member] = semi[smallest] < owner ? ~smallest : owner;
        member = next;
    }
}

// The node with the smallest semidominator among a linked node and those above it as far as they
// are linked, numbers from `processed` on. Compresses the path on the way.
int SearchOrderDominators::eval(int number, int processed) {
    int* const parent = parents.get();
    int* const label = labels.get();
    int begun[SHORT_PATH];
    int length = 0;
    int top = number;
    for (; parent[top] >= processed; top = parent[top]) {
        if (length < SHORT_PATH) {
            begun[length] = top;
        } else {
            path.set(length - SHORT_PATH, top);
        }
        length++;
    }
    const int end = parent[top];
    int best = label[top];
    int least = semi[best];
    while (length > 0) {
        length--;
        const int node = length < SHORT_PATH ? begun[length] : path.get(length - SHORT_PATH);
        const int own = label[node];
        if (semi[own] <= least) {
            best = own;
            least = semi[own];
        } else {
            label[node] = best;
        }
        parent[node] = end;
    }
    return best;
}

// In the order of numbers, so that the node a dominator was noted by has its own already.
void SearchOrderDominators::finishDominators() {
    int* const dominator = dominators.get();
    for (int number = VIRTUAL_ROOT + 1; number <= last; number++) {
        if (dominator[number] < 0) {
            dominator[number] = dominator[~dominator[number]];
        }
    }
}

void SearchOrderDominators::storeDominators() {
    BigIntArray64* stored = storage.arrayOfKind(READ_DOMINATORS);
    for (int from = 0; from < objectCount; from += BigIntArray64::PAGE_SIZE) {
        memset(stored->getBuffer(from, true), 0, BigIntArray64::PAGE_BYTES);
    }
    int* const* pages = stored->pagePointers();
    const auto place = [pages](int row) {
        return pages[row >> BigIntArray64::PAGE_BITS] + (row & BigIntArray64::PAGE_MASK);
    };
    const int* const rowOf = rows.get();
    const int* const dominator = dominators.get();
    for (int number = VIRTUAL_ROOT + 1; number <= last; number++) {
        const int ahead = number <= last - AHEAD_NODE ? number + AHEAD_NODE : last;
        __builtin_prefetch(place(rowOf[ahead]), 1);
        __builtin_prefetch(rowOf + dominator[ahead]);
        *place(rowOf[number]) = rowOf[dominator[number]];
    }
}
