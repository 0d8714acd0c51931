#include "classfile/ClassArena.h"

#include <atomic>
#include <cstring>

namespace {
// Blocks of the standard size that no arena uses.
constexpr int SPARES = 2;
std::atomic<void*> ourSpares[SPARES];
} // namespace

ClassArena::Block* ClassArena::takeBlock(size_t size) {
    for (int i = 0; i < SPARES && size == STANDARD_BLOCK; i++) {
        void* const spare = ourSpares[i].exchange(nullptr);
        if (spare != nullptr) {
            return static_cast<Block*>(spare);
        }
    }
    Block* const block = static_cast<Block*>(::operator new(sizeof(Block) + size));
    block->size = size;
    return block;
}

void ClassArena::giveBlock(Block* block) {
#ifndef VDK_SANITIZED // there a class's memory must not outlive it
    for (int i = 0; i < SPARES && block->size == STANDARD_BLOCK; i++) {
        void* none = nullptr;
        if (ourSpares[i].compare_exchange_strong(none, block)) {
            return;
        }
    }
#endif
    ::operator delete(block);
}

void ClassArena::freeBlocks(const Block* upTo) {
    while (blocks != upTo) {
        Block* const older = blocks->older;
        giveBlock(blocks);
        blocks = older;
    }
}

void ClassArena::openBlock(Block* block) {
    next = reinterpret_cast<unsigned char*>(block) + sizeof(Block);
    end = next + block->size;
}

void ClassArena::reset() {
    if (blocks == nullptr) {
        return;
    }
    Block* const newest = blocks;
    blocks = newest->older;
    freeBlocks(nullptr);
    blocks = newest;
    newest->older = nullptr;
    openBlock(newest);
}

void* ClassArena::allocateSlowly(size_t rounded) {
    static_assert(sizeof(Block) % 8 == 0, "allocations behind the header stay aligned");
    if (rounded > blockSize / 2) {
        blockSize = rounded * 2;
    }
    Block* const block = takeBlock(blockSize);
    block->older = blocks;
    blocks = block;
    committed += sizeof(Block) + block->size;
    openBlock(block);
    blockSize *= 2;
    void* const result = next;
    next += rounded;
    return result;
}

unsigned char* ClassArena::copyBytes(const unsigned char* bytes, int count) {
    unsigned char* const copy = allocateArray<unsigned char>(count);
    if (count > 0) {
        memcpy(copy, bytes, static_cast<size_t>(count));
    }
    return copy;
}
