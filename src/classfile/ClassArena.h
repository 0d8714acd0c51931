#pragma once

#include <cstddef>
#include <new>

// ClassArena: the memory of one class while it is parsed, edited and written.
//
// DESCRIPTION
//   Allocation is a pointer bump; nothing is freed before the arena is. Objects in it must not need
//   a destructor. One thread at a time uses an arena.
// IMPLEMENTATION
//   A list of blocks from the C++ heap, newest first. A request that does not fit in the newest
//   block opens a new one of at least twice its size, so that a class of n bytes costs O(log n)
//   heap calls.
class ClassArena {
public:
    // firstBlock: expected need in bytes. No memory is taken before the first allocation.
    explicit ClassArena(size_t firstBlock = 8192)
        : next(nullptr), end(nullptr), blocks(nullptr),
          blockSize(firstBlock < 1024 ? 1024 : firstBlock) {}
    ~ClassArena();
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
    // A private copy of count bytes.
    unsigned char* copyBytes(const unsigned char* bytes, int count);
    // Bytes taken from the heap so far.
    size_t getCommitted() const { return committed; }

private:
    struct Block {
        Block* older;
    };
    void* allocateSlowly(size_t rounded);

    unsigned char* next;
    unsigned char* end;
    Block* blocks;
    size_t blockSize;
    size_t committed = 0;
};
