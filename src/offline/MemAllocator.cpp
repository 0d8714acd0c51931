#include "offline/MemAllocator.h"

#include "core/ground/Logger.h"
#include "platform/Platform.h"

#include <cstdint>
#include <cstring>
#include <new>
#include <sys/mman.h>
#include <unistd.h>

namespace {

// Blocks below this size come from the ordinary heap.
constexpr size_t BIG_BLOCK = 1 << 20;
// Size of a large page on the systems served; blocks that can hold some start at such a boundary.
constexpr size_t LARGE_PAGE = 2 << 20;

size_t systemPageSize() {
    return static_cast<size_t>(sysconf(_SC_PAGESIZE));
}

size_t roundedUp(size_t bytes) {
    const size_t page = systemPageSize();
    return (bytes + page - 1) / page * page;
}

void* mapAnonymous(size_t bytes) {
    void* address =
        mmap(nullptr, bytes, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    if (address == MAP_FAILED) {
        throw std::bad_alloc();
    }
    return address;
}

void* mapAligned(size_t bytes) {
    char* address = static_cast<char*>(mapAnonymous(bytes + LARGE_PAGE));
    const size_t ahead =
        (LARGE_PAGE - reinterpret_cast<uintptr_t>(address) % LARGE_PAGE) % LARGE_PAGE;
    if (ahead > 0) {
        munmap(address, ahead);
    }
    munmap(address + ahead + bytes, LARGE_PAGE - ahead);
#ifdef MADV_HUGEPAGE
    madvise(address + ahead, bytes, MADV_HUGEPAGE);
#endif
    return address + ahead;
}

// For the whole pages that lie in the part.
void onPages(void* part, size_t bytes, void (*action)(void* start, size_t length)) noexcept {
    const size_t page = systemPageSize();
    const uintptr_t from = (reinterpret_cast<uintptr_t>(part) + page - 1) / page * page;
    const uintptr_t to = (reinterpret_cast<uintptr_t>(part) + bytes) / page * page;
    if (from < to) {
        action(reinterpret_cast<void*>(from), to - from);
    }
}

} // namespace

void* MemAllocator::allocateZeroed(size_t bytes, bool largePages) {
    if (bytes < BIG_BLOCK) {
        void* block = ::operator new(bytes);
        memset(block, 0, bytes);
        return block;
    }
    const size_t rounded = roundedUp(bytes);
    if (rounded < bytes || rounded + LARGE_PAGE < rounded) {
        throw std::bad_alloc();
    }
    return largePages && rounded >= LARGE_PAGE ? mapAligned(rounded) : mapAnonymous(rounded);
}

void MemAllocator::release(void* block, size_t bytes) noexcept {
    if (block == nullptr) {
        return;
    }
    if (bytes < BIG_BLOCK) {
        ::operator delete(block);
    } else {
        munmap(block, roundedUp(bytes));
    }
}

void MemAllocator::giveBack(void* part, size_t bytes) noexcept {
    onPages(part, bytes, Platform::releasePages);
}

void MemAllocator::makeReady(void* part, size_t bytes) noexcept {
    onPages(part, bytes, Platform::populatePages);
}

void* MemAllocator::map(int fileDescriptor, long offset, long size, long* pageOffset,
                        long* mappedLength, bool shared) {
    Logger::assertTrue(fileDescriptor >= 0, VDK_HERE);
    *pageOffset = offset % static_cast<long>(systemPageSize());
    *mappedLength = *pageOffset + size;
    void* address = mmap(nullptr, static_cast<size_t>(*mappedLength), PROT_READ | PROT_WRITE,
                         shared ? MAP_SHARED : MAP_PRIVATE, fileDescriptor, offset - *pageOffset);
    return address == MAP_FAILED ? nullptr : address;
}

void MemAllocator::unmap(void* address, long length) {
    Logger::assertNotNULL(address, VDK_HERE);
    Logger::assertEquals(munmap(address, static_cast<size_t>(length)), 0, VDK_HERE);
}
