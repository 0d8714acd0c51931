#include "db/ZIntChunkMap.h"

ZIntChunkMap<int>::ZIntChunkMap(int wantedChunks, int defaultValue)
    : chunks(nullptr), capacity(0), chunkCount(0), defaultInt(defaultValue) {
    growTo(wantedChunks);
}

ZIntChunkMap<int>::~ZIntChunkMap() {
    for (int i = 0; i < chunkCount; i++) {
        delete[] chunks[i];
    }
    delete[] chunks;
}

void ZIntChunkMap<int>::put(int key, int value) {
    const int chunk = key >> CHUNK_SHIFT;
    if (key >= capacity && chunk >= chunkCount) {
        if (value == defaultInt) {
            return;
        }
        // Unsigned, since three times a large key leaves the range of int; such a key gets exactly
        // the chunks that it needs.
        const int tripled = static_cast<int>(static_cast<unsigned>(key) * 3u);
        const int generous = ((tripled / 2) >> CHUNK_SHIFT) + 1;
        growTo(generous > chunk ? generous : chunk + 1);
    }
    if (chunks[chunk] == nullptr) {
        int* values = new int[CHUNK_SIZE];
        for (int i = 0; i < CHUNK_SIZE; i++) {
            values[i] = defaultInt;
        }
        chunks[chunk] = values;
    }
    chunks[chunk][key & CHUNK_MASK] = value;
}

long ZIntChunkMap<int>::getAllocatedBytes() const {
    long bytes = static_cast<long>(chunkCount) * static_cast<long>(sizeof(int*));
    for (int i = 0; i < chunkCount; i++) {
        if (chunks[i] != nullptr) {
            bytes += static_cast<long>(CHUNK_SIZE * sizeof(int));
        }
    }
    return bytes;
}

void ZIntChunkMap<int>::growTo(int wantedChunks) {
    int** grown = new int*[static_cast<size_t>(wantedChunks)]();
    if (chunkCount > 0) {
        memcpy(grown, chunks, sizeof(int*) * static_cast<size_t>(chunkCount));
    }
    delete[] chunks;
    chunks = grown;
    chunkCount = wantedChunks;
    capacity = wantedChunks > 0x7fffffff >> CHUNK_SHIFT ? 0x7fffffff : wantedChunks << CHUNK_SHIFT;
}
