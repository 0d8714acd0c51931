#pragma once

#include "offline/ObjectStorage.h"

// Sets of rows as bit fields: row r is bit r % 32 of word r / 32. All walks use explicit stacks.

inline int bitFieldWords(int objectCount) {
    return (objectCount - 1) / 32 + 1;
}
inline bool isMarked(const int* bits, int row) {
    return (static_cast<unsigned>(bits[row >> 5]) >> (row & 31) & 1) != 0;
}
inline void setMark(int* bits, int row) {
    bits[row >> 5] = static_cast<int>(static_cast<unsigned>(bits[row >> 5]) | 1u << (row & 31));
}

// In all of these `bits` has bitFieldWords(object count) words, and an object or reference that is
// no row is an internal error.

// Marks each object that isn't marked yet and all that it reaches through unmarked rows. False, and
// reported, at object 0.
bool markReachable(RowErrors* rowErrors, const ObjectStorage& storage, const int* objects,
                   int objectCount, int* bits);

// What a group retains: afterwards the rows unmarked in resultBits are those of reachableBits that
// `roots` reach only through the group. The group are the marked rows of groupBits if that is not
// null, otherwise the rows in groupList, groupSize of them.
bool markAllButRetained(RowErrors* rowErrors, const ObjectStorage& storage, const int* groupBits,
                        const int* groupList, int groupSize, const int* roots, int rootCount,
                        const int* reachableBits, int* resultBits);

// Sum of the shallow sizes of the marked rows from 1 on.
long sumOfMarkedSizes(const ObjectStorage& storage, const int* bits);
