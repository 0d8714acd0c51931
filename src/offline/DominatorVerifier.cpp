#include "offline/DominatorVerifier.h"

#include "offline/FlatGraph.h"
#include "offline/Reachability.h"

#include <cstring>

namespace {

constexpr int PROGRESS_ROWS = 1 << 18;
// How far ahead of the walk memory is fetched, in entries of the stack.
constexpr int AHEAD_ROWS = 8;
constexpr int AHEAD_LISTS = 4;

int* bitsOf(BigIntArray64Presized& bits) {
    return bits.buffer;
}

class Verifier {
public:
    Verifier(const ObjectStorage& checked, const int* rootRows, int roots, const int* bits,
             AnalysisProgress* told)
        : storage(checked), references(checked.getReferences()), rootList(rootRows),
          rootCount(roots), progress(told), count(checked.getObjectCount()),
          reached("dv-r", bitFieldWords(count)), certified("dv-c", bitFieldWords(count)),
          childLists("dv-cl", count + 1), children("dv-ch", count), depths("dv-d", count),
          firstSiblings("dv-f", count), path("dv-p"), stack("dv-st"), open("dv-o"), openCount(0) {
        findReached(bits);
    }

    DominatorCheck run() {
        if (buildTree() && walkTree()) {
            orderSiblings();
            solveKnots();
        }
        return check;
    }

private:
    bool violated(const char* property, int row, int other) {
        check.violated = property;
        check.row = row;
        check.other = other;
        return false;
    }

    // Rows left out count as visited by the walk, and are taken out behind it.
    void findReached(const int* bits) {
        BigIntArray64Presized allowed("dv-a", bitFieldWords(count));
        for (int i = 0; i < allowed.size; i++) {
            allowed.buffer[i] = bits == nullptr ? -1 : bits[i];
            reached.buffer[i] = ~allowed.buffer[i];
        }
        reached.buffer[0] &= ~1;
        for (int i = 0; i < rootCount; i++) {
            Logger::assertTrue(rootList[i] > 0 && rootList[i] < count, VDK_HERE);
        }
        markReachable(nullptr, storage, rootList, rootCount, bitsOf(reached));
        for (int i = 0; i < allowed.size; i++) {
            reached.buffer[i] &= allowed.buffer[i];
        }
        reached.buffer[0] &= ~1;
    }

    bool isReached(int row) const { return isMarked(reached.buffer, row); }

    // childLists[d] is where the children of d end, and those of d + 1 begin, in `children`.
    bool buildTree() {
        for (int row = 1; row < count; row++) {
            const int d = storage.getDominator(row);
            if (!isReached(row)) {
                if (d != 0) {
                    return violated("a row out of reach has no dominator", row, d);
                }
                continue;
            }
            if (d < 0 || d >= count || d == row || (d != 0 && !isReached(d))) {
                return violated("a dominator is another reached row", row, d);
            }
            childLists.buffer[d]++;
        }
        int next = 0;
        for (int row = 0; row < count; row++) {
            const int length = childLists.buffer[row];
            childLists.buffer[row] = next;
            next += length;
        }
        for (int row = 1; row < count; row++) {
            if (isReached(row)) {
                children.buffer[childLists.buffer[storage.getDominator(row)]++] = row;
            }
        }
        return true;
    }

    // In preorder, so that a row's dominator and its references come before all that it dominates.
    bool walkTree() {
        long walked = 0;
        for (int i = 0; i < rootCount; i++) {
            if (isReached(rootList[i]) && !checkReference(0, rootList[i], 0)) {
                return false;
            }
        }
        int depth = pushChildren(0, 0);
        while (depth > 0) {
            if ((++walked & (PROGRESS_ROWS - 1)) == 0) {
                reportProgress(progress, "verifying dominators", walked, count);
            }
            prefetchRows(depth);
            const int row = stack.get(--depth);
            const int level = depths.buffer[storage.getDominator(row)] + 1;
            depths.buffer[row] = level;
            path.set(level, row);
            if (!checkReferencesOf(row, level)) {
                return false;
            }
            depth = pushChildren(row, depth);
        }
        for (int row = 1; row < count; row++) {
            if (isReached(row) && depths.buffer[row] == 0) {
                return violated("dominators form a tree", row, storage.getDominator(row));
            }
        }
        return true;
    }

    void prefetchRows(int depth) const {
        if (depth <= AHEAD_ROWS || references.isStored()) {
            return;
        }
        const int row = stack.get(depth - AHEAD_ROWS);
        references.prefetchPlace(row);
        __builtin_prefetch(childLists.buffer + row);
        const int start = references.getStart(stack.get(depth - AHEAD_LISTS));
        const int page = start >> BigIntArray64::PAGE_BITS;
        const BigIntArray64& store = references.getReferences();
        if (start >= 0 && page < store.getPageCount()) {
            __builtin_prefetch(store.pagePointers()[page] + (start & BigIntArray64::PAGE_MASK));
        }
    }

    int pushChildren(int row, int depth) {
        const int from = row == 0 ? 0 : childLists.buffer[row - 1];
        for (int i = from; i < childLists.buffer[row]; i++) {
            stack.set(depth++, children.buffer[i]);
        }
        return depth;
    }

    bool checkReferencesOf(int row, int level) {
        BigIntArrayIterator64 list = references.initReferenceIterator(row);
        while (list.hasNext()) {
            const int target = list.next();
            if (target != 0 && isReached(target) && !checkReference(row, target, level)) {
                return false;
            }
        }
        return true;
    }

    // The rows on the path are the ancestors of `row`, which stands at `level`.
    bool checkReference(int row, int target, int level) {
        const int dominator = storage.getDominator(target);
        const int dominatorLevel = depths.buffer[dominator];
        if (dominatorLevel > level || path.get(dominatorLevel) != dominator) {
            return violated("a dominator is an ancestor of each referrer", target, row);
        }
        if (dominator == row) {
            check.direct += !isMarked(bitsOf(certified), target);
            setMark(bitsOf(certified), target);
            return true;
        }
        const int sibling = path.get(dominatorLevel + 1);
        if (sibling == target || isMarked(bitsOf(certified), target)) {
            return true;
        }
        if (isMarked(bitsOf(certified), sibling)) {
            noteSibling(sibling, target);
        } else {
            Logger::assertTrue(openCount < 0x3fffffff, VDK_HERE);
            open.set(2 * openCount, sibling);
            open.set(2 * openCount + 1, target);
            openCount++;
        }
        return true;
    }

    // A certified sibling refers to target: with a second one, target stands between the two.
    // True if that certified it now.
    bool noteSibling(int sibling, int target) {
        const int first = firstSiblings.buffer[target];
        if (first == 0 || first == sibling) {
            firstSiblings.buffer[target] = sibling;
            return false;
        }
        setMark(bitsOf(certified), target);
        check.ordered++;
        return true;
    }

    // Lets rows certified late certify others. Lists of the open references by their sources, in
    // the memory of the tree, which is needed no longer.
    void orderSiblings() {
        if (openCount == 0) {
            return;
        }
        memset(childLists.buffer, 0, static_cast<size_t>(childLists.size) * sizeof(int));
        for (int i = 0; i < openCount; i++) {
            childLists.buffer[open.get(2 * i)]++;
        }
        int next = 0;
        for (int row = 0; row < count; row++) {
            next += childLists.buffer[row];
            childLists.buffer[row] = next;
        }
        childLists.buffer[count] = next;
        BigIntArray64 targets("dv-t");
        for (int i = openCount - 1; i >= 0; i--) {
            targets.set(--childLists.buffer[open.get(2 * i)], open.get(2 * i + 1));
        }
        int depth = 0;
        for (int row = 1; row < count; row++) {
            if (isMarked(bitsOf(certified), row)) {
                depth = certifyTargets(row, targets, depth);
                while (depth > 0) {
                    depth = certifyTargets(stack.get(depth - 1), targets, depth - 1);
                }
            }
        }
    }

    int certifyTargets(int row, const BigIntArray64& targets, int depth) {
        for (int i = childLists.buffer[row]; i < childLists.buffer[row + 1]; i++) {
            const int target = targets.get(i);
            if (!isMarked(bitsOf(certified), target) && noteSibling(row, target)) {
                stack.set(depth++, target);
            }
        }
        return depth;
    }

    // What is left has at most one certified sibling each. Certified siblings have disjoint ways
    // from the dominator, so they stand for themselves below the root of a graph with the rest.
    void solveKnots() {
        BigIntArray64Presized& ids = depths;
        memset(ids.buffer, 0, static_cast<size_t>(ids.size) * sizeof(int));
        int nodes = 0;
        BigIntArray64 rows("dv-k");
        const auto number = [&](int row) {
            if (ids.buffer[row] == 0) {
                ids.buffer[row] = ++nodes;
                rows.set(nodes, row);
            }
        };
        for (int row = 1; row < count; row++) {
            if (isReached(row) && !isMarked(bitsOf(certified), row)) {
                check.solved++;
                number(row);
                if (firstSiblings.buffer[row] != 0) {
                    number(firstSiblings.buffer[row]);
                }
            }
        }
        if (nodes == 0) {
            return;
        }
        FlatGraph graph(nodes);
        forEachKnotEdge(rows, nodes, [&](int from, int to) { graph.countEdge(from, to); });
        graph.allotEdges();
        forEachKnotEdge(rows, nodes, [&](int from, int to) { graph.addEdge(from, to); });
        const int dominated = graph.findDominated(progress);
        if (dominated != 0) {
            violated("no row dominates a sibling", rows.get(dominated), 0);
        }
    }

    template <typename Body>
    void forEachKnotEdge(const BigIntArray64& rows, int nodes, Body&& body) {
        const BigIntArray64Presized& ids = depths;
        for (int node = 1; node <= nodes; node++) {
            const int row = rows.get(node);
            if (isMarked(bitsOf(certified), row)) {
                body(0, node);
            } else if (firstSiblings.buffer[row] != 0) {
                body(ids.buffer[firstSiblings.buffer[row]], node);
            }
        }
        for (int i = 0; i < openCount; i++) {
            const int from = open.get(2 * i);
            const int to = open.get(2 * i + 1);
            if (!isMarked(bitsOf(certified), from) && !isMarked(bitsOf(certified), to)) {
                body(ids.buffer[from], ids.buffer[to]);
            }
        }
    }

    const ObjectStorage& storage;
    const RefTable& references;
    const int* rootList;
    int rootCount;
    AnalysisProgress* progress;
    int count;
    BigIntArray64Presized reached;    // bits
    BigIntArray64Presized certified;  // bits: no sibling dominates the row
    BigIntArray64Presized childLists; // by row; count + 1 entries
    BigIntArray64Presized children;   // of all rows, list by list
    BigIntArray64Presized depths;     // by row, 0 for the virtual root
    BigIntArray64Presized
        firstSiblings;  // by row: a certified sibling that refers to it, 0 for none
    BigIntArray64 path; // by level: the row on the way to the current one
    BigIntArray64 stack;
    BigIntArray64 open; // pairs: an uncertified sibling, and what it refers to
    int openCount;
    DominatorCheck check;
};

} // namespace

DominatorCheck verifyDominators(const ObjectStorage& storage, const int* roots, int rootCount,
                                const int* reachableBits, AnalysisProgress* progress) {
    return Verifier(storage, roots, rootCount, reachableBits, progress).run();
}

int verifyRetainedSizes(const ObjectStorage& storage) {
    const int count = storage.getObjectCount();
    BigIntArray64 sums("dv-s");
    for (int row = 1; row < count; row++) {
        const int d = storage.getDominator(row);
        if (d < 0 || d >= count) {
            return row;
        }
        if (d != 0) {
            sums.setLong(d, sums.getLong(d) + storage.getRetainedSize(row));
        }
    }
    for (int row = 1; row < count; row++) {
        if (storage.getRetainedSize(row) != storage.getSize(row) + sums.getLong(row)) {
            return row;
        }
    }
    return 0;
}
