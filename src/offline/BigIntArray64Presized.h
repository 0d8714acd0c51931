#pragma once

#include "core/ground/Logger.h"
#include "core/ground/ZString.h"

// BigIntArray64Presized: a contiguous array of 32-bit integers whose size is fixed at construction,
// for tables whose access must be one indexed load. Elements read as 0 until they are set; the
// memory of a stretch never touched is never taken. Only negative indices are checked here: whoever
// takes an index from outside checks it against size.
struct BigIntArray64Presized {
    // size: number of elements, not negative. Throws std::bad_alloc.
    BigIntArray64Presized(const char* arrayName, long size);
    ~BigIntArray64Presized();
    BigIntArray64Presized(const BigIntArray64Presized&) = delete;
    BigIntArray64Presized& operator=(const BigIntArray64Presized&) = delete;

    int get(int index) const {
        Logger::assertTrue(index >= 0, VDK_HERE);
        return buffer[index];
    }
    void set(int index, int value) {
        Logger::assertTrue(index >= 0, VDK_HERE);
        buffer[index] = value;
    }

    int* buffer;
    ZString name;
    long size;
};

// Stores data[i - from] at index i, for i from `from` below `to`, which must lie within the array.
// Zeros are skipped: the elements must be 0 already.
void fillArray(BigIntArray64Presized& array, const int* data, int from, int to);
