#pragma once

#include "offline/BigIntArray64.h"
#include "offline/BigIntArray64Presized.h"
#include "offline/StoredColumns.h"

// RefTable: a list of references for each row, all in one store. A reference is a row number; 0
// means none and counts as a position all the same.
//
// DESCRIPTION
//   A list takes the next stretch of the store when it is created, is never moved and never grows.
//   Reading is open to any number of threads. For a fill by several threads: reserve() all
//   positions, then setList() and setRefAt() for rows of which each belongs to one thread.
// IMPLEMENTATION
//   `startsAndCounts` holds two elements a row: where its list starts in `references`, and its
//   length. Positions stay below 2^31. A table in order, whose lists stand in the order of rows
//   without a gap, holds one: where the list starts, and the list before it ends. A stored table
//   has neither: its lists come from a file as they are asked for, and nothing can be set.
class RefTable {
public:
    // Rows run from 0 below rowCount. Throws std::bad_alloc.
    RefTable(const char* tableName, int rowCount);
    // A table in order, of `total` positions that are all reserved: set the lists of all rows,
    // from row 0 on, by setList.
    struct InOrder {
        int total;
    };
    RefTable(const char* tableName, int rowCount, InOrder lists);
    // The table of lists that a file has; they outlive it.
    RefTable(const char* tableName, int rowCount, const StoredLists* lists);
    RefTable(const RefTable&) = delete;
    RefTable& operator=(const RefTable&) = delete;

    // Gives the row a list of count positions, behind all lists so far.
    void createRefs(int row, int count);
    // Stores a reference at a position of the row's list; a position outside of it is an internal
    // error, and so is a bad row.
    void setRef(int row, int reference, int position) {
        references.set(positionInStore(row, position), reference);
    }
    int getRef(int row, int position) const {
        const int at = positionInStore(row, position);
        return isStored() ? *stored->list(at, 1) : references.get(at);
    }
    int getStart(int row) const {
        return isStored() ? stored->start(row) : startsAndCounts.get(inOrder ? row : 2 * row);
    }
    int getCount(int row) const {
        return isStored() ? stored->count(row)
               : inOrder  ? startsAndCounts.get(row + 1) - startsAndCounts.get(row)
                          : startsAndCounts.get(2 * row + 1);
    }
    // Where the list of a row stands, for walks that look ahead in a table that is not stored.
    // Unchecked: the row must be one.
    struct Place {
        int start;
        int count;
    };
    Place placeOf(int row) const {
        const int* at = startsAndCounts.buffer + static_cast<size_t>(row) * (inOrder ? 1 : 2);
        return {at[0], inOrder ? at[1] - at[0] : at[1]};
    }
    void prefetchPlace(int row) const {
        __builtin_prefetch(startsAndCounts.buffer + static_cast<size_t>(row) * (inOrder ? 1 : 2));
    }
    // The row's list in order. Its stretch is checked, its references are not.
    BigIntArrayIterator64 initReferenceIterator(int row) const {
        const int start = getStart(row);
        const int count = getCount(row);
        checkStretch(start, count);
        if (isStored()) {
            return BigIntArrayIterator64(stored->list(start, count), start, start + count);
        }
        return BigIntArrayIterator64(references, start, start + count);
    }

    // Calls body(page, first, last, pageStart) for each piece of a row's list that lies in one
    // page, in descending order of position; the page begins at that position of the store. A
    // missing page holds no references. The table may not be stored.
    template <typename Body>
    void forEachPiece(int row, Body&& body) const {
        const auto [start, count] = placeOf(row);
        checkStretch(start, count);
        int end = start + count;
        while (end > start) {
            const int page = (end - 1) >> BigIntArray64::PAGE_BITS;
            const int pageStart = page << BigIntArray64::PAGE_BITS;
            const int first = start > pageStart ? start : pageStart;
            const int* elements =
                page < references.getPageCount() ? references.pagePointers()[page] : nullptr;
            if (elements != nullptr) {
                body(elements, first - pageStart, end - pageStart, pageStart);
            }
            end = first;
        }
    }

    // Bulk fill. Makes the positions from 0 below total the store, without a list for any row.
    void reserve(int total);
    // Gives the row the stretch of the store, which must be reserved; in a table in order that
    // behind the row before.
    void setList(int row, int start, int count);
    // Stores into a reserved position.
    void setRefAt(int position, int reference) {
        references.pagePointers()[position >> BigIntArray64::PAGE_BITS]
                                 [position & BigIntArray64::PAGE_MASK] = reference;
    }

    // Number of positions in all lists: the next free one.
    int getReferenceCount() const { return nextFree; }
    int getRowCount() const { return rowCount; }
    // True if the lists are those of a file: the arrays below are empty.
    bool isStored() const { return stored != nullptr; }

    // The arrays themselves, for bulk loads, files and the walks of this folder.
    BigIntArray64Presized& getStartsAndCounts() { return startsAndCounts; }
    const BigIntArray64Presized& getStartsAndCounts() const { return startsAndCounts; }
    BigIntArray64& getReferences() { return references; }
    const BigIntArray64& getReferences() const { return references; }

    // Lets go of file mappings behind the table. Nothing is mapped: the table lives in memory.
    void unmapRefTable(const char* /*reason*/) {}

    // True if every row's stretch lies within the limits of a store and every reference is a row
    // from 0 below objectCount: what the walks of this folder rely on after a bulk load.
    bool isSound(int objectCount) const;

private:
    int positionInStore(int row, int position) const {
        Logger::assertTrue(row >= 0 && row < rowCount, VDK_HERE);
        Logger::assertTrue(position >= 0 && position < getCount(row), VDK_HERE);
        const long at = static_cast<long>(getStart(row)) + position;
        Logger::assertTrue(at >= 0 && at <= 0x7fffffffL, VDK_HERE);
        return static_cast<int>(at);
    }
    static void checkStretch(int start, int count) {
        const bool good = start >= 0 && count >= 0 && start <= 0x7fffffff - count;
        Logger::assertTrue(good, VDK_HERE);
    }

    int rowCount;
    const bool inOrder = false;
    const StoredLists* stored = nullptr;
    BigIntArray64Presized startsAndCounts;
    BigIntArray64 references;
    int nextFree;
};
