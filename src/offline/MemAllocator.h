#pragma once

#include <cstddef>

// MemAllocator: memory of the offline analysis that is too big for the ordinary heap: zeroed blocks
// for tables of hundreds of millions of rows, and mappings of files. A big block comes straight
// from the system: it reads as zero, takes real memory only where it was touched, uses large pages
// where the system has them (random access to a table of gigabytes is bound by address
// translation), and goes back to the system when it is released. All functions may be called from
// any thread.
class MemAllocator {
public:
    // A zeroed block. Throws std::bad_alloc. To be released with the same size. Large pages cost
    // their whole size at the first touch: not for what may stay almost empty.
    static void* allocateZeroed(size_t bytes, bool largePages = true);
    // Null does nothing.
    static void release(void* block, size_t bytes) noexcept;
    // Part of a block from allocateZeroed is not needed any more: what is in it is lost, its memory
    // may go back to the system. The block is still to be released.
    static void giveBack(void* part, size_t bytes) noexcept;
    // Has the system clear the memory of part of a block now that is going to be touched, so that
    // whoever touches it doesn't wait. What is in it stays; others may use it meanwhile.
    static void makeReady(void* part, size_t bytes) noexcept;

    // Maps `size` bytes of a file from `offset` on for reading and writing; shared tells whether
    // writes reach the file. The mapping begins at a page boundary: the wanted bytes start at
    // result + *pageOffset, and *mappedLength is what unmap takes. Null on failure.
    static void* map(int fileDescriptor, long offset, long size, long* pageOffset,
                     long* mappedLength, bool shared);
    static void unmap(void* address, long length);
};
