#pragma once

#include "db/ChunkArray.h"

// ZIntChunkMap2: ZIntChunkMap for rows of ints whose length is known at run time only.
//
// DESCRIPTION
//   As ZIntChunkMap: rows never move, the capacity grows to exactly what a key needs, and a
//   row is present when its first word differs from the default int. The owner locks.
// IMPLEMENTATION
//   A chunk holds 256 rows of rowLength ints, row k of it at (k & 255) * rowLength.
class ZIntChunkMap2 {
public:
    static constexpr int CHUNK_SHIFT = ChunkArray<int>::CHUNK_SHIFT;
    static constexpr int CHUNK_SIZE = ChunkArray<int>::CHUNK_SIZE;
    static constexpr int CHUNK_MASK = ChunkArray<int>::CHUNK_MASK;

    // Both the capacity and the row length, in words, must be at least 1.
    ZIntChunkMap2(int wantedCapacity, int defaultValue, int rowLength);

    // The row of a non-negative key; with create never null.
    int* getPtr(int key, bool create) {
        int* rows = chunks.find(key);
        if (rows == nullptr) {
            if (!create) {
                return nullptr;
            }
            rows = chunks.create(key, chunkWords(), defaultInt);
        }
        int* row = rows + static_cast<long>(key & CHUNK_MASK) * rowLength;
        return create || row[0] != defaultInt ? row : nullptr;
    }
    int getCapacity() const { return chunks.getCapacity(); }
    int getChunkCount() const { return chunks.getCount(); }
    int getRowLength() const { return rowLength; }
    // The rows of a chunk, or null.
    int* chunkAt(int chunk) { return chunks.at(chunk); }
    // Key of the first row of the first chunk that exists, -1 if none does.
    int getMinKey() const {
        const int first = chunks.getLowest();
        return first == chunks.getCount() ? -1 : first << CHUNK_SHIFT;
    }
    // Calls visitor(index, row) for every present row, in ascending order.
    template <typename Visitor>
    void eachRow(Visitor&& visitor) {
        for (int chunk = chunks.getLowest(); chunk < chunks.getCount(); chunk++) {
            int* row = chunks.at(chunk);
            for (int slot = 0; row != nullptr && slot < CHUNK_SIZE; slot++, row += rowLength) {
                if (row[0] != defaultInt) {
                    visitor((chunk << CHUNK_SHIFT) + slot, row);
                }
            }
        }
    }
    void freeAllChunks() { chunks.freeAll(); }
    // Makes the capacity at least `keys`.
    void reserve(int keys) { chunks.reserve(keys); }
    long getChunkBytes() const { return static_cast<long>(chunkWords()) * 4; }
    // Bytes of the pointer array and of the chunks that exist.
    long getAllocatedBytes() const { return chunks.getAllocatedBytes(chunkWords()); }

private:
    size_t chunkWords() const {
        return static_cast<size_t>(CHUNK_SIZE) * static_cast<size_t>(rowLength);
    }

    ChunkArray<int> chunks;
    int defaultInt;
    int rowLength;
};
