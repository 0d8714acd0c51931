#include "snapshot/ObjectTable.h"

#include <climits>
#include <cstdlib>
#include <cstring>
#include <new>

namespace {

constexpr int WORD_BITS = 64;
constexpr long FIRST_CAPACITY = 0x10000;
constexpr long LARGEST_CAPACITY = INT_MAX / WORD_BITS * WORD_BITS;

template <typename T>
T* resized(T* block, long count) {
    void* const larger = realloc(block, static_cast<size_t>(count) * sizeof(T));
    if (larger == nullptr) {
        throw std::bad_alloc();
    }
    return static_cast<T*>(larger);
}

} // namespace

ObjectTable::~ObjectTable() {
    free(values);
    free(bits);
}

void ObjectTable::grow(int index) {
    long wanted = FIRST_CAPACITY;
    while (wanted <= index) {
        wanted = wanted * 3 / 2 / WORD_BITS * WORD_BITS;
    }
    wanted = wanted < LARGEST_CAPACITY ? wanted : LARGEST_CAPACITY;
    if (wanted <= index) {
        throw std::bad_alloc();
    }
    values = resized(values, wanted);
    bits = resized(bits, wanted / WORD_BITS);
    memset(bits + capacity / WORD_BITS, 0, static_cast<size_t>(wanted - capacity) / 8);
    capacity = static_cast<int>(wanted);
}
