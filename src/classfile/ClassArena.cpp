#include "classfile/ClassArena.h"

#include <cstring>

ClassArena::~ClassArena() {
    while (blocks != nullptr) {
        Block* const older = blocks->older;
        ::operator delete(blocks);
        blocks = older;
    }
}

void* ClassArena::allocateSlowly(size_t rounded) {
    static_assert(sizeof(Block) % 8 == 0, "allocations behind the header stay aligned");
    if (rounded > blockSize / 2) {
        blockSize = rounded * 2;
    }
    Block* const block = static_cast<Block*>(::operator new(sizeof(Block) + blockSize));
    block->older = blocks;
    blocks = block;
    committed += sizeof(Block) + blockSize;
    next = reinterpret_cast<unsigned char*>(block) + sizeof(Block);
    end = next + blockSize;
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
