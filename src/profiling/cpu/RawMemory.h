#pragma once

#include <cstring>
#include <stdint.h>

// RawMemory: words of stacks and of the JVM's structures, by their addresses. Nothing checks these:
// the caller knows that the memory is there.
namespace RawMemory {

const uintptr_t WORD = sizeof(uintptr_t);

template <typename T>
T read(uintptr_t address) {
    T value;
    memcpy(&value, reinterpret_cast<const void*>(address), sizeof(value));
    return value;
}

inline uintptr_t wordAt(uintptr_t address, int words = 0) {
    return read<uintptr_t>(address + static_cast<uintptr_t>(words) * WORD);
}

} // namespace RawMemory
