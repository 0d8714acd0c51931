#pragma once

#include "offline/LazySection.h"

// The columns of a heap as the file of an analyzed heap has them, read as they are asked for. They
// take less room than those in memory, and nothing can be set. Row numbers are any: what lies
// behind a column fails as a damaged file does.

// Small numbers of 2 or 4 bytes a row, kept plus one, with a list of the rows whose number is
// larger.
template <typename T>
class NarrowColumn {
public:
    struct Wide {
        unsigned long row;
        long value;
    };
    static constexpr T IS_WIDE = static_cast<T>(~T(0));

    // True if the number needs no entry in the list.
    static bool fits(long value) { return value >= -1 && value < static_cast<long>(IS_WIDE) - 1; }

    long get(int row) const {
        const T kept = narrow->at<T>(static_cast<unsigned long>(row));
        return kept != IS_WIDE ? static_cast<long>(kept) - 1 : find(row);
    }

    const LazySection* narrow = nullptr;
    const LazySection* wide = nullptr; // Wide by ascending rows

private:
    long find(int row) const {
        unsigned long low = 0;
        unsigned long high = wide->size() / sizeof(Wide);
        while (low < high) {
            const unsigned long middle = low + (high - low) / 2;
            const Wide entry = wide->at<Wide>(middle);
            if (entry.row == static_cast<unsigned long>(row)) {
                return entry.value;
            }
            if (entry.row < static_cast<unsigned long>(row)) {
                low = middle + 1;
            } else {
                high = middle;
            }
        }
        wide->fail("lacks a row");
        return -1;
    }
};

// 64-bit numbers that differ little from row to row, as differences: a directory has the number of
// every 32nd row and the place of the differences behind it. Without a directory all are 0.
class DeltaColumn {
public:
    static constexpr int ROWS_PER_PLACE = 32;
    static constexpr int LONGEST_DELTA = 10; // bytes
    struct Place {
        unsigned long value;
        unsigned long at;
    };

    // Puts the difference to `bytes`, of which there are LONGEST_DELTA at least; how many it took.
    static int encode(unsigned long before, unsigned long value, unsigned char* bytes);

    unsigned long get(int row) const;

    const LazySection* places = nullptr;
    const LazySection* deltas = nullptr;
};

// Lists of references: where each starts, with one start more behind the last, and all of them.
struct StoredLists {
    const LazySection* starts = nullptr;
    const LazySection* references = nullptr;

    int start(int row) const { return starts->at<int>(static_cast<unsigned long>(row)); }
    int count(int row) const {
        const int first = start(row);
        const int end = starts->at<int>(static_cast<unsigned long>(row) + 1);
        if (__builtin_expect(end < first, 0)) {
            starts->fail("has a list that ends ahead of its start");
        }
        return end - first;
    }
    // `count` references from position `from` on.
    const int* list(int from, int count) const {
        const unsigned long first = static_cast<unsigned long>(from) * sizeof(int);
        return reinterpret_cast<const int*>(
            references->stretch(first, first + static_cast<unsigned long>(count) * sizeof(int)));
    }
};

// All of a heap's columns.
class StoredColumns {
public:
    virtual ~StoredColumns() = default;

    int dominator(int row) const { return dominators->at<int>(static_cast<unsigned long>(row)); }
    // Of a column that may be absent, when all rows have the same value.
    static int optional(const LazySection* column, int row, int fillValue) {
        return column->size() == 0 ? fillValue : column->at<int>(static_cast<unsigned long>(row));
    }
    // Sizes and lengths, which the storage has as 32-bit numbers from -1 on.
    static int narrow(const NarrowColumn<unsigned short>& column, int row) {
        const long value = column.get(row);
        if (__builtin_expect(value < -1 || value > 0x7fffffff, 0)) {
            column.wide->fail("has a number out of range");
        }
        return static_cast<int>(value);
    }

    StoredLists references;
    StoredLists backwardReferences;
    const LazySection* dominators = nullptr;
    NarrowColumn<unsigned short> sizes;
    NarrowColumn<unsigned short> arrayLengths;
    NarrowColumn<unsigned> retainedSizes;
    const LazySection* generations = nullptr;
    const LazySection* allocatorFrames = nullptr;
    const LazySection* allocatorThreads = nullptr;
    DeltaColumn identifiers; // of a heap dump's objects
    DeltaColumn recordPositions;
    DeltaColumn primitivePositions;
};
