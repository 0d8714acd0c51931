#pragma once

#include "offline/MemAllocator.h"

#include <atomic>

// LazySection: bytes of a file that come to memory block by block as they are asked for, so that a
// question about a few rows of a large heap reads a few blocks. Any number of threads may ask.
//
// IMPLEMENTATION
//   Memory of the whole length is reserved and stays untouched where no block was asked for; one
//   flag a block tells whether it is there. A block is copied, not mapped, and checked once when it
//   comes: whoever changes or cuts the file afterwards changes nothing here.
class LazySection {
public:
    static constexpr int BLOCK_BITS = 14;
    static constexpr unsigned long BLOCK_BYTES = 1UL << BLOCK_BITS;

    // Throws std::bad_alloc.
    explicit LazySection(unsigned long bytes)
        : length(bytes), blocks((bytes + BLOCK_BYTES - 1) >> BLOCK_BITS),
          memory(static_cast<unsigned char*>(MemAllocator::allocateZeroed(length, false))),
          present(nullptr) {
        try {
            present = static_cast<Flag*>(MemAllocator::allocateZeroed(blocks * sizeof(Flag)));
        } catch (...) {
            MemAllocator::release(memory, length);
            throw;
        }
    }
    virtual ~LazySection() {
        MemAllocator::release(memory, length);
        MemAllocator::release(present, blocks * sizeof(Flag));
    }
    LazySection(const LazySection&) = delete;
    LazySection& operator=(const LazySection&) = delete;

    unsigned long size() const { return length; }

    // Element `index` of the section as an array. A size of T divides that of a block. Fails for an
    // index behind the end.
    template <typename T>
    T at(unsigned long index) const {
        static_assert(BLOCK_BYTES % sizeof(T) == 0, "an element lies in one block");
        if (__builtin_expect(index >= length / sizeof(T), 0)) {
            fail("has no such row");
        }
        needBlock(index * sizeof(T) >> BLOCK_BITS);
        return reinterpret_cast<const T*>(memory)[index];
    }

    // The bytes from `from` below `to`. Fails if they aren't within the section.
    const unsigned char* stretch(unsigned long from, unsigned long to) const {
        if (from > to || to > length) {
            fail("has no such stretch");
        }
        for (unsigned long block = from >> BLOCK_BITS; block << BLOCK_BITS < to; block++) {
            needBlock(block);
        }
        return memory + from;
    }

    // The section can't be what it should be. Throws what the readers of the file throw.
    [[noreturn]] virtual void fail(const char* what) const = 0;

protected:
    bool isPresent(unsigned long block) const {
        return present[block].load(std::memory_order_acquire) != 0;
    }
    unsigned char* blockStart(unsigned long block) const { return memory + (block << BLOCK_BITS); }
    unsigned long blockLength(unsigned long block) const {
        const unsigned long left = length - (block << BLOCK_BITS);
        return left < BLOCK_BYTES ? left : BLOCK_BYTES;
    }
    void setPresent(unsigned long block) const {
        present[block].store(1, std::memory_order_release);
    }
    // Brings and checks a block, once however many threads ask, and sets it present; throws if that
    // fails.
    virtual void load(unsigned long block) const = 0;

private:
    using Flag = std::atomic<unsigned char>;

    void needBlock(unsigned long block) const {
        if (__builtin_expect(!isPresent(block), 0)) {
            load(block);
        }
    }

    unsigned long length;
    unsigned long blocks;
    unsigned char* memory;
    Flag* present;
};
