#include "offline/SearchOrderDominators.h"

#include "offline/Reachability.h"
#include "offline/SearchOrderResults.h"
#include "offline/ThreadTeam.h"

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
// Rows that a thread takes in one go where any thread may take any.
constexpr int STRIPE_BITS = 16;
constexpr int STRIPES_PER_REPORT = 4;
// Memory that is made ready in one go.
constexpr size_t STRETCH_BYTES = 8 << 20;

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

// What a thread collects the sources of, every so-manieth stripe of rows, and where each list goes
// on for it, by number.
struct SearchOrderDominators::Share {
    int member;
    int members;
    int* cursors;
    AnalysisProgress* progress; // null but in the first thread
    std::atomic<bool>* stop;
};

// One number more than there are rows: the virtual root has one.
SearchOrderDominators::SearchOrderDominators(ObjectStorage& analysed, const int* roots,
                                             int rootCount, const int* reachableBits,
                                             int wantedThreads, AnalysisProgress* told,
                                             AfterSearch* afterSearch)
    : storage(analysed), progress(told), threads(wantedThreads > 1 ? wantedThreads : 1),
      objectCount(analysed.getObjectCount()), reached(bitFieldWords(objectCount)),
      followed(wordsFor(storage.getReferences().getReferences())),
      rootRows(bitFieldWords(objectCount)), numbers(objectCount), parents(objectCount + 1L),
      labels(objectCount + 1L), path("sod") {
    searchWithMemoryAhead(roots, rootCount, reinterpret_cast<const unsigned*>(reachableBits));
    if (afterSearch != nullptr) {
        afterSearch->searchEnded();
    }
    collectSources();
    invertNumbers();
    labels.allot(objectCount + 1L);
    computeSemidominators();
    parents.drop();
    labels.drop();
    sources.drop();
    finishDominators();
    storeSearchOrder(storage, {rows.get(), dominators.get(), last}, threads, progress);
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

// Meanwhile a second thread has the system clear the memory that the search fills at random and the
// next step begins with.
void SearchOrderDominators::searchWithMemoryAhead(const int* roots, int rootCount,
                                                  const unsigned* reachableBits) {
    if (threads == 1) {
        search(roots, rootCount, reachableBits);
        return;
    }
    if (threads == 2) {
        otherCursors.allot(objectCount + 1L);
    }
    std::atomic<bool> stop{false};
    runPair(
        [&] {
            const size_t bytes = (static_cast<size_t>(objectCount) + 1) * sizeof(int);
            for (size_t from = 0; from < bytes && !stop; from += STRETCH_BYTES) {
                const size_t length = bytes - from < STRETCH_BYTES ? bytes - from : STRETCH_BYTES;
                MemAllocator::makeReady(numbers.get() + from / sizeof(int), length);
                MemAllocator::makeReady(parents.get() + from / sizeof(int), length);
            }
            for (ScratchColumn* column : {&labels, &otherCursors}) {
                if (column->get() != nullptr && !stop) {
                    MemAllocator::makeReady(column->get(), bytes);
                }
            }
        },
        [&] {
            search(roots, rootCount, reachableBits);
            stop = true;
        },
        &stop);
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

// Counts the sources of each node, places the lists by number, and stores the sources. Two threads
// have cursors each; more share one set, which costs a locked addition a source instead of 4 bytes
// a row and thread.
void SearchOrderDominators::collectSources() {
    std::atomic<bool> stop{false};
    const auto inShares = [&](auto&& step) {
        runTeam(
            threads,
            [&](int member) {
                const Share share{member, threads,
                                  threads == 2 && member == 1 ? otherCursors.get() : labels.get(),
                                  member == 0 ? progress : nullptr, &stop};
                if (threads > 2) {
                    step(share, [](int& cursor) {
                        return __atomic_fetch_add(&cursor, 1, __ATOMIC_RELAXED);
                    });
                } else {
                    step(share, [](int& cursor) { return cursor++; });
                }
            },
            &stop);
    };
    inShares([this](const Share& share, auto take) { countSources(share, take); });
    placeLists();
    inShares([this](const Share& share, auto take) { storeSources(share, take); });
    rootRows.drop();
    followed.drop();
    // The ends of the lists become the starts of the next ones.
    dominators.take(threads == 2 ? otherCursors : labels);
    labels.drop();
    if (last > VIRTUAL_ROOT) {
        int* const starts = dominators.get() + VIRTUAL_ROOT + 1;
        memmove(starts + 1, starts, static_cast<size_t>(last - VIRTUAL_ROOT - 1) * sizeof(int));
        starts[0] = 0;
    }
}

// Turns the counts into where each list begins, that of the other cursors behind the first, and
// makes room for all.
void SearchOrderDominators::placeLists() {
    long firstSemi = 0;
    for (int number = VIRTUAL_ROOT + 1; number <= last; number++) {
        const long needed = static_cast<long>(sourceCount) - number;
        firstSemi = needed > firstSemi ? needed : firstSemi;
        for (int* each : {labels.get(), otherCursors.get()}) {
            if (each != nullptr) {
                const int count = each[number];
                each[number] = sourceCount;
                sourceCount += count;
            }
        }
    }
    const long semisEnd = firstSemi + last + 1;
    sources.allot(semisEnd > sourceCount ? semisEnd : sourceCount);
    semi = sources.get() + firstSemi;
}

// The rows by number.
void SearchOrderDominators::invertNumbers() {
    rows.allot(objectCount + 1L);
    std::atomic<bool> stop{false};
    runTeam(
        threads,
        [&](int member) {
            const int* const numberOf = numbers.get();
            const int end = partBegin(1, objectCount, member + 1, threads);
            for (int row = partBegin(1, objectCount, member, threads); row < end; row++) {
                const int ahead = row < objectCount - AHEAD_NODE ? row + AHEAD_NODE : row;
                __builtin_prefetch(rows.get() + numberOf[ahead], 1);
                if (numberOf[row] != 0) {
                    rows.get()[numberOf[row]] = row;
                }
            }
        },
        &stop);
    numbers.drop();
}

// Calls handle(source, target) with the numbers of both ends of each reference that decides
// anything, and some steps ahead fetches the target's cursor; also with sources of 0, which tell of
// nothing, until all that is delayed by `handle` must be through.
template <typename Handle>
void SearchOrderDominators::walkSources(const Share& share, const char* phase,
                                        Handle&& handle) const {
    const int* const numberOf = numbers.get();
    const RefTable& references = storage.getReferences();
    Delay<Passing, AHEAD_NUMBER> toNumber;
    Delay<Passing, AHEAD_CURSOR> toCursor;
    const auto pass = [&](int source, int targetRow) {
        __builtin_prefetch(numberOf + targetRow);
        Passing passing = toNumber.exchange({source, targetRow});
        passing.target = numberOf[passing.target];
        __builtin_prefetch(share.cursors + passing.target, 1);
        passing = toCursor.exchange(passing);
        // Number 0: left out by the caller.
        const bool counts = passing.target != 0 && passing.target != passing.source;
        handle(counts ? passing.source : 0, passing.target);
    };
    const auto walkRow = [&](int row) {
        const int source = numberOf[row];
        if (source == 0) {
            return;
        }
        references.forEachPiece(row, [&](const int* page, int first, int end, int pageStart) {
            for (int i = first; i < end; i++) {
                if (page[i] != 0 && !wasFollowed(pageStart + i) &&
                    !Search::isSet(rootRows.bits(), page[i])) {
                    pass(source, page[i]);
                }
            }
        });
    };
    const int stripes = ((objectCount - 1) >> STRIPE_BITS) + 1;
    for (int stripe = share.member; stripe < stripes; stripe += share.members) {
        if (stripe / share.members % STRIPES_PER_REPORT == 0) {
            reportProgress(share.progress, phase, stripe, stripes);
        }
        if (*share.stop) {
            throw AnalysisCancelled();
        }
        const int end = stripe == stripes - 1 ? objectCount : (stripe + 1) << STRIPE_BITS;
        for (int row = stripe == 0 ? 1 : stripe << STRIPE_BITS; row < end; row++) {
            walkRow(row);
        }
    }
    for (int i = 0; i < AHEAD_NUMBER + AHEAD_CURSOR + AHEAD_STORE; i++) {
        pass(0, 0);
    }
}

template <typename Take>
void SearchOrderDominators::countSources(const Share& share, Take take) const {
    walkSources(share, "sources: counting", [&](int source, int target) {
        if (source != 0) {
            take(share.cursors[target]);
        }
    });
}

template <typename Take>
void SearchOrderDominators::storeSources(const Share& share, Take take) const {
    int* const stored = sources.get();
    Delay<Passing, AHEAD_STORE> toPlace;
    walkSources(share, "sources: storing", [&](int source, int target) {
        const int place = source != 0 ? take(share.cursors[target]) : 0;
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
