#pragma once

// ZIntChunkMap2: ZIntChunkMap for rows of ints whose length is known at run time only.
//
// DESCRIPTION
//   As ZIntChunkMap: rows never move, the pointer array grows to exactly what a key needs, and a
//   row is present when its first word differs from the default int. The owner locks.
// IMPLEMENTATION
//   A chunk holds 256 rows of rowLength ints, row k of it at (k & 255) * rowLength.
class ZIntChunkMap2 {
public:
    static constexpr int CHUNK_SHIFT = 8;
    static constexpr int CHUNK_SIZE = 1 << CHUNK_SHIFT;
    static constexpr int CHUNK_MASK = CHUNK_SIZE - 1;

    // Both the capacity and the row length, in words, must be at least 1.
    ZIntChunkMap2(int wantedCapacity, int defaultValue, int rowLength);
    ~ZIntChunkMap2();
    ZIntChunkMap2(const ZIntChunkMap2&) = delete;
    ZIntChunkMap2& operator=(const ZIntChunkMap2&) = delete;

    // The row of a non-negative key; with create never null.
    int* getPtr(int key, bool create) {
        const int chunk = key >> CHUNK_SHIFT;
        if (chunk < chunkCount && chunks[chunk] != nullptr) {
            int* row = chunks[chunk] + rowOffset(key);
            return create || row[0] != defaultInt ? row : nullptr;
        }
        return create ? createPtr(key) : nullptr;
    }
    int getCapacity() const { return capacity; }
    int getChunkCount() const { return chunkCount; }
    int getRowLength() const { return rowLength; }
    // The rows of a chunk, or null.
    int* chunkAt(int chunk) { return chunks[chunk]; }
    // Key of the first row of the first chunk that exists, -1 if none does.
    int getMinKey() const;
    void freeAllChunks();
    // Grows the pointer array so that keys below `keys` need no further growth.
    void reserve(int keys);
    long getChunkBytes() const { return static_cast<long>(CHUNK_SIZE) * rowLength * 4; }
    // Bytes of the pointer array and of the chunks that exist.
    long getAllocatedBytes() const;

private:
    long rowOffset(int key) const { return static_cast<long>(key & CHUNK_MASK) * rowLength; }
    int* createPtr(int key);
    void growTo(int wantedChunks);

    int** chunks;
    int capacity;
    int chunkCount;
    int defaultInt;
    int rowLength;
};
