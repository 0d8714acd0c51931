#pragma once

#include "core/ground/ZString.h"

#include <atomic>

// Where Java wants paged arrays that live in files. Arrays live in memory, so nothing reads it.
extern ZString ourAlternateTempDirForBigIntArraysUtf8;

// Expected length of the snapshot file that is being written from a storage, in bytes; 0 while none
// is. Any thread may read it.
extern std::atomic<long> ourIndexFileFullLength;

constexpr bool isIntelByteOrder() {
    return __BYTE_ORDER__ == __ORDER_LITTLE_ENDIAN__;
}
