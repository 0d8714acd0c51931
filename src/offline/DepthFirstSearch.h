#pragma once

#include "offline/BigIntArray64.h"
#include "offline/RefTable.h"

// DepthFirstSearch: the order in which both dominator computations number the rows of a storage.
// Without recursion, 8 bytes a level. Tree is told of each row when it is found:
//     void visit(int row, int parentRow);
//     void follow(int position);   by the reference at that position of the store, none for a root
//     void prefetch(int row);      the row is likely to be visited soon
// Rows whose bit is set in `visited` (a bit for each row) are passed over; the search sets the bits
// of those it finds. A reference that is no row is an internal error. Throws std::bad_alloc and
// what Tree throws.
template <typename Tree>
class DepthFirstSearch {
public:
    // rowCount: rows are below it.
    DepthFirstSearch(const RefTable& references, int rowCount, unsigned* visitedBits,
                     Tree& treeToTell)
        : refTable(references), objectCount(rowCount), visited(visitedBits), tree(treeToTell),
          stack("dfsd") {}

    // Rows that are not in the graph count as visited from the start; so should row 0, "no
    // reference": one look into the bits then decides about a reference.
    static void excludeAllBut(const unsigned* reachableBits, int rowCount, unsigned* visited) {
        const int words = (rowCount - 1) / 32 + 1;
        for (int i = 0; i < words; i++) {
            visited[i] = ~reachableBits[i];
        }
        setBit(visited, 0);
    }
    static bool isSet(const unsigned* bits, int row) {
        return (bits[row >> 5] >> (row & 31) & 1) != 0;
    }
    static void setBit(unsigned* bits, int row) { bits[row >> 5] |= 1u << (row & 31); }

    // Finds all that the row leads to, if it was not found before. The row at the top of the stack
    // is held in locals; an entry is a row and its next position. A row whose last reference is
    // being followed leaves the stack at once.
    void searchFrom(int root, int parentOfRoot) {
        if (isSet(visited, root)) {
            return;
        }
        int depth = 0;
        int row = root;
        int next = 0;
        find(row, parentOfRoot);
        for (;;) {
            const int count = refTable.getCount(row);
            const int child = nextChild(row, &next);
            if (child == 0) {
                if (depth == 0) {
                    return;
                }
                depth -= 2;
                const int* entry =
                    stack.getBuffer(depth, false) + (depth & BigIntArray64::PAGE_MASK);
                row = entry[0];
                next = entry[1];
                continue;
            }
            if (next < count) {
                int* entry = stack.getBuffer(depth, true) + (depth & BigIntArray64::PAGE_MASK);
                entry[0] = row;
                entry[1] = next;
                depth += 2;
            }
            find(child, row);
            row = child;
            next = 0;
        }
    }

private:
    static constexpr int AHEAD_CHILDREN = 8;

    void find(int row, int parent) {
        setBit(visited, row);
        tree.visit(row, parent);
    }

    // The first row not visited among the references of row from position *next on, 0 if there is
    // none; *next is then the position behind it.
    int nextChild(int row, int* next) {
        const auto [start, count] = refTable.placeOf(row);
        const bool sound = start >= 0 && count >= 0 && start <= 0x7fffffff - count;
        Logger::assertTrue(sound, VDK_HERE);
        const BigIntArray64& store = refTable.getReferences();
        while (*next < count) {
            const int page = (start + *next) >> BigIntArray64::PAGE_BITS;
            const int first = (start + *next) & BigIntArray64::PAGE_MASK;
            const int inPage = BigIntArray64::PAGE_SIZE - first;
            const int length = count - *next < inPage ? count - *next : inPage;
            const int* elements =
                page < store.getPageCount() ? store.pagePointers()[page] : nullptr;
            if (elements != nullptr) {
                elements += first;
                if (*next == 0) {
                    prefetchChildren(elements, length);
                }
                for (int i = 0; i < length; i++) {
                    const unsigned reference = static_cast<unsigned>(elements[i]);
                    Logger::assertTrue(reference < static_cast<unsigned>(objectCount), VDK_HERE);
                    if (!isSet(visited, elements[i])) {
                        tree.follow(start + *next + i);
                        *next += i + 1;
                        return elements[i];
                    }
                }
            }
            *next += length;
        }
        return 0;
    }

    void prefetchChildren(const int* elements, int length) {
        const int most = length < AHEAD_CHILDREN ? length : AHEAD_CHILDREN;
        for (int i = 0; i < most; i++) {
            const unsigned child = static_cast<unsigned>(elements[i]);
            if (child < static_cast<unsigned>(objectCount) && !isSet(visited, elements[i])) {
                refTable.prefetchPlace(elements[i]);
                tree.prefetch(elements[i]);
            }
        }
    }

    const RefTable& refTable;
    int objectCount;
    unsigned* visited;
    Tree& tree;
    BigIntArray64 stack;
};
