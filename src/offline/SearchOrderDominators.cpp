#include "offline/SearchOrderDominators.h"

#include "offline/MemAllocator.h"
#include "offline/Reachability.h"

// Source of the algorithm: T. Lengauer and R. E. Tarjan, "A fast algorithm for finding dominators
// in a flowgraph", ACM TOPLAS 1(1), 1979.

namespace {

// How many nodes ahead of the walk each step of a look-up is fetched: the row's place in the table
// of referrers, its list, the referrers' numbers, what stands at those. By then the step before has
// arrived.
constexpr int AHEAD_NODE = 32;
constexpr int AHEAD_LIST = 24;
constexpr int AHEAD_REFERRERS = 16;
constexpr int AHEAD_ANCESTORS = 8;
// Referrers fetched ahead for a node: few have more.
constexpr int AHEAD_MOST = 4;
constexpr int PROGRESS_NODES = 1 << 18;
constexpr int VIRTUAL_ROOT = 1;
// Steps of a path that are kept without the paged array.
constexpr int SHORT_PATH = 64;

} // namespace

SearchOrderDominators::Column::Column(long elements) {
    allot(elements);
}

void SearchOrderDominators::Column::allot(long elements) {
    drop();
    const size_t wanted = static_cast<size_t>(elements) * sizeof(int);
    ints = static_cast<int*>(MemAllocator::allocateZeroed(wanted));
    bytes = wanted;
}

void SearchOrderDominators::Column::drop() noexcept {
    MemAllocator::release(ints, bytes);
    ints = nullptr;
    bytes = 0;
}

// One number more than there are rows: the virtual root has one.
SearchOrderDominators::SearchOrderDominators(ObjectStorage& analysed, const int* roots,
                                             int rootCount, const int* reachableBits,
                                             AnalysisProgress* told, AfterSearch* afterSearch)
    : storage(analysed), progress(told), objectCount(analysed.getObjectCount()),
      numbers(objectCount), rows(objectCount + 1L), parents(objectCount + 1L), path("sod") {
    search(roots, rootCount, reinterpret_cast<const unsigned*>(reachableBits));
    if (afterSearch != nullptr) {
        afterSearch->searchEnded();
    }
    Logger::assertNotNULL(storage.getBackwardReferences(), VDK_HERE);
    semis.allot(objectCount + 1L);
    labels.allot(objectCount + 1L);
    dominators.allot(objectCount + 1L);
    computeSemidominators();
    parents.drop();
    semis.drop();
    labels.drop();
    finishDominators();
    storeDominators();
    rows.drop();
    dominators.drop();
}

void SearchOrderDominators::visit(int row, int parentRow) {
    const int number = ++last;
    parents.get()[number] = numbers.get()[parentRow];
    numbers.get()[row] = number;
    rows.get()[number] = row;
    if ((number & (PROGRESS_NODES - 1)) == 0) {
        reportProgress(progress, "depth-first search", number, objectCount);
    }
}

void SearchOrderDominators::search(const int* roots, int rootCount, const unsigned* reachableBits) {
    Column visited(bitFieldWords(objectCount));
    unsigned* const bits = reinterpret_cast<unsigned*>(visited.get());
    Search::excludeAllBut(reachableBits, objectCount, bits);
    visit(0, 0);
    Search found(storage.getReferences(), objectCount, bits, *this);
    for (int i = 0; i < rootCount; i++) {
        Logger::assertTrue(roots[i] > 0 && roots[i] < objectCount, VDK_HERE);
        found.searchFrom(roots[i], 0);
    }
    for (int i = 0; i < rootCount; i++) {
        const int number = numbers.get()[roots[i]];
        int& parent = parents.get()[number];
        if (number != 0 && parent > VIRTUAL_ROOT) {
            parent = ~parent;
        }
    }
}

// From the last number to the first; number 1 has nothing above it.
void SearchOrderDominators::computeSemidominators() {
    const RefTable& backward = *storage.getBackwardReferences();
    Logger::assertTrue(backward.getRowCount() >= objectCount, VDK_HERE);
    int* const parent = parents.get();
    int* const semi = semis.get();
    int* const label = labels.get();
    int* const dominator = dominators.get();
    for (int number = last; number > VIRTUAL_ROOT; number--) {
        if ((number & (PROGRESS_NODES - 1)) == 0) {
            reportProgress(progress, "dominators", last - number, last);
        }
        prefetchNodes(number, backward);
        int least = VIRTUAL_ROOT;
        if (parent[number] < 0) {
            parent[number] = ~parent[number];
        } else {
            least = smallestOfReferrers(number, parent[number], backward);
        }
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

int SearchOrderDominators::smallestOfReferrers(int number, int semi, const RefTable& backward) {
    const int* const numberOf = numbers.get();
    BigIntArrayIterator64 list = backward.initReferenceIterator(rows.get()[number]);
    int before = 0;
    while (list.hasNext() && semi > VIRTUAL_ROOT) {
        const int referrer = list.next();
        if (referrer == before) {
            continue;
        }
        before = referrer;
        // 0: beyond the reach of the roots, or left out by the caller.
        int candidate = numberOf[referrer];
        if (candidate > number) {
            candidate = semis.get()[eval(candidate, number + 1)];
        }
        semi = candidate != 0 && candidate < semi ? candidate : semi;
    }
    return semi;
}

void SearchOrderDominators::prefetchNodes(int number, const RefTable& backward) const {
    if (number <= AHEAD_NODE + VIRTUAL_ROOT) {
        return;
    }
    const BigIntArray64& store = backward.getReferences();
    const auto rowAhead = [&](int distance) { return rows.get()[number - distance]; };
    const auto listOf = [&](const RefTable::Place& place) {
        return store.pagePointers()[place.start >> BigIntArray64::PAGE_BITS] +
               (place.start & BigIntArray64::PAGE_MASK);
    };
    const auto lengthOf = [&](const RefTable::Place& place) {
        const int inPage = BigIntArray64::PAGE_SIZE - (place.start & BigIntArray64::PAGE_MASK);
        const int most = AHEAD_MOST < inPage ? AHEAD_MOST : inPage;
        return place.count < most ? place.count : most;
    };
    backward.prefetchPlace(rowAhead(AHEAD_NODE));
    RefTable::Place place = backward.placeOf(rowAhead(AHEAD_LIST));
    if (place.count > 0) {
        __builtin_prefetch(listOf(place));
    }
    place = backward.placeOf(rowAhead(AHEAD_REFERRERS));
    for (int i = lengthOf(place) - 1; i >= 0; i--) {
        __builtin_prefetch(numbers.get() + listOf(place)[i]);
    }
    place = backward.placeOf(rowAhead(AHEAD_ANCESTORS));
    for (int i = lengthOf(place) - 1; i >= 0; i--) {
        const int referrer = numbers.get()[listOf(place)[i]];
        if (referrer > number) {
            __builtin_prefetch(parents.get() + referrer, 1);
            __builtin_prefetch(labels.get() + referrer, 1);
        }
    }
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
        dominator[member] = semis.get()[smallest] < owner ? ~smallest : owner;
        member = next;
    }
}

// The node with the smallest semidominator among a linked node and those above it as far as they
// are linked, numbers from `processed` on. Compresses the path on the way.
int SearchOrderDominators::eval(int number, int processed) {
    int* const parent = parents.get();
    int* const label = labels.get();
    const int* const semi = semis.get();
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
    const int* const numberOf = numbers.get();
    const int* const dominator = dominators.get();
    BigIntArray64* stored = storage.arrayOfKind(READ_DOMINATORS);
    for (int from = 0; from < objectCount; from += BigIntArray64::PAGE_SIZE) {
        const int left = objectCount - from;
        const int count = left < BigIntArray64::PAGE_SIZE ? left : BigIntArray64::PAGE_SIZE;
        int* page = stored->getBuffer(from, true);
        for (int i = 0; i < count; i++) {
            const int ahead = i + AHEAD_NODE < count ? numberOf[from + i + AHEAD_NODE] : 0;
            __builtin_prefetch(dominator + ahead);
            const int soon = i + AHEAD_REFERRERS < count ? numberOf[from + i + AHEAD_REFERRERS] : 0;
            __builtin_prefetch(rows.get() + dominator[soon]);
            // Number 0, of rows not reached, and 1 have dominator 0, which stands for row 0.
            page[i] = rows.get()[dominator[numberOf[from + i]]];
        }
    }
}
