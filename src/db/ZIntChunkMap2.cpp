#include "db/ZIntChunkMap2.h"

#include "core/ground/Logger.h"

#include <cstddef>
#include <cstring>

ZIntChunkMap2::ZIntChunkMap2(int wantedCapacity, int defaultValue, int wantedRowLength)
    : chunks(nullptr), capacity(0), chunkCount(0), defaultInt(defaultValue),
      rowLength(wantedRowLength) {
    Logger::assertTrue(wantedCapacity >= 1, VDK_HERE);
    Logger::assertTrue(wantedRowLength >= 1, VDK_HERE);
    growTo((wantedCapacity >> CHUNK_SHIFT) + 1);
}

ZIntChunkMap2::~ZIntChunkMap2() {
    freeAllChunks();
    delete[] chunks;
}

int ZIntChunkMap2::getMinKey() const {
    for (int i = 0; i < chunkCount; i++) {
        if (chunks[i] != nullptr) {
            return i << CHUNK_SHIFT;
        }
    }
    return -1;
}

void ZIntChunkMap2::freeAllChunks() {
    for (int i = 0; i < chunkCount; i++) {
        delete[] chunks[i];
        chunks[i] = nullptr;
    }
}

void ZIntChunkMap2::reserve(int keys) {
    if (keys > capacity) {
        growTo(((keys - 1) >> CHUNK_SHIFT) + 1);
    }
}

long ZIntChunkMap2::getAllocatedBytes() const {
    long bytes = static_cast<long>(chunkCount) * static_cast<long>(sizeof(int*));
    for (int i = 0; i < chunkCount; i++) {
        if (chunks[i] != nullptr) {
            bytes += getChunkBytes();
        }
    }
    return bytes;
}

int* ZIntChunkMap2::createPtr(int key) {
    const int chunk = key >> CHUNK_SHIFT;
    if (chunk >= chunkCount) {
        growTo(chunk + 1);
    }
    const size_t words = static_cast<size_t>(CHUNK_SIZE) * static_cast<size_t>(rowLength);
    int* rows = new int[words];
    for (size_t i = 0; i < words; i++) {
        rows[i] = defaultInt;
    }
    chunks[chunk] = rows;
    return rows + rowOffset(key);
}

void ZIntChunkMap2::growTo(int wantedChunks) {
    int** grown = new int*[static_cast<size_t>(wantedChunks)]();
    if (chunkCount > 0) {
        memcpy(grown, chunks, sizeof(int*) * static_cast<size_t>(chunkCount));
    }
    delete[] chunks;
    chunks = grown;
    chunkCount = wantedChunks;
    capacity = wantedChunks > 0x7fffffff >> CHUNK_SHIFT ? 0x7fffffff : wantedChunks << CHUNK_SHIFT;
}
