#pragma once

#include "offline/MemAllocator.h"

#include <utility>

// ScratchColumn: zeroed integers for the time of a computation, which go when they are dropped.
class ScratchColumn {
public:
    ScratchColumn() = default;
    // Throws std::bad_alloc.
    explicit ScratchColumn(long elements, bool largePages = true) { allot(elements, largePages); }
    ~ScratchColumn() { drop(); }
    ScratchColumn(const ScratchColumn&) = delete;
    ScratchColumn& operator=(const ScratchColumn&) = delete;

    // What it had before goes first. Without large pages what is never touched costs nothing.
    // Throws std::bad_alloc.
    void allot(long elements, bool largePages = true) {
        drop();
        const size_t wanted = static_cast<size_t>(elements) * sizeof(int);
        ints = static_cast<int*>(MemAllocator::allocateZeroed(wanted, largePages));
        bytes = wanted;
    }
    void drop() noexcept {
        MemAllocator::release(ints, bytes);
        ints = nullptr;
        bytes = 0;
    }
    // Gets what the other has; the other has nothing afterwards.
    void take(ScratchColumn& other) noexcept {
        drop();
        std::swap(bytes, other.bytes);
        std::swap(ints, other.ints);
    }
    int* get() const { return ints; }
    unsigned* bits() const { return reinterpret_cast<unsigned*>(ints); }

private:
    size_t bytes = 0;
    int* ints = nullptr;
};
