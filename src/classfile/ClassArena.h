#pragma once

#include <cstddef>
#include <new>

// ClassArena: the memory of one class while it is parsed, edited and written.
//
// DESCRIPTION
//   Allocation is a pointer bump; nothing is freed before the arena is. Objects in it must not need
//   a destructor. One thread at a time uses an arena.
// IMPLEMENTATION
//   A list of blocks, newest first. A request that does not fit in the newest block opens a new one
//   of at least twice its size, so that a class of n bytes costs O(log n) heap calls. Blocks of the
//   standard size pass from one arena to the next, two at most, without the heap in between: most
//   classes cost no heap call, and find their memory in the caches.
class ClassArena {
public:
    // firstBlock: expected need in bytes. No memory is taken before the first allocation.
    explicit ClassArena(size_t firstBlock = 0)
        : next(nullptr), end(nullptr), blocks(nullptr),
          blockSize(firstBlock < STANDARD_BLOCK ? STANDARD_BLOCK : firstBlock) {}
    ~ClassArena() { freeBlocks(nullptr); }
    ClassArena(const ClassArena&) = delete;
    ClassArena& operator=(const ClassArena&) = delete;

    // Uninitialised memory for `bytes` bytes, aligned for pointers. Throws std::bad_alloc.
    void* allocate(size_t bytes) {
        const size_t rounded = (bytes + 7) & ~static_cast<size_t>(7);
        if (rounded > static_cast<size_t>(end - next)) {
            return allocateSlowly(rounded);
        }
        void* const result = next;
        next += rounded;
        return result;
    }
    // Uninitialised room for count values of a plain type.
    template <typename T>
    T* allocateArray(int count) {
        return static_cast<T*>(allocate(sizeof(T) * static_cast<size_t>(count)));
    }
    // Constructs a T in the arena. Its destructor never runs.
    template <typename T, typename... Args>
    T* make(Args&&... args) {
        return new (allocate(sizeof(T))) T(static_cast<Args&&>(args)...);
    }
    // Gives back what lies behind `unused` of the newest allocation.
    void trim(const void* unused) {
        next += (static_cast<const unsigned char*>(unused) - next + 7) & ~static_cast<long>(7);
    }
    // Forgets all allocations; the newest block stays for the next ones.
    void reset();
    // A private copy of count bytes.
    unsigned char* copyBytes(const unsigned char* bytes, int count);
    // Bytes of all blocks taken so far.
    size_t getCommitted() const { return committed; }

private:
    struct Block {
        Block* older;
        size_t size; // without this header
    };
    static constexpr size_t STANDARD_BLOCK = 128 * 1024;

    void* allocateSlowly(size_t rounded);
    void openBlock(Block* block);
    void freeBlocks(const Block* upTo);
    static Block* takeBlock(size_t size);
    static void giveBlock(Block* block);

    unsigned char* next;
    unsigned char* end;
    Block* blocks;
    size_t blockSize; // of the next block
    size_t committed = 0;
};
