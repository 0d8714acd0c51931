#pragma once

#include "db/ChunkArray.h"

#include <type_traits>

// ZIntChunkMap<T>: records addressed by a small non-negative int.
//
// DESCRIPTION
//   A read costs one shift, one mask and two dependent loads. Chunks of 256 records are allocated
//   when one of their slots is first written and never move, so a record pointer stays valid while
//   the map grows; finding a record needs the owner's lock but for getPtrUnlocked below a capacity
//   that was reserved at construction (ChunkArray).
// IMPLEMENTATION
//   Key k lies in chunk k >> 8, slot k & 255. A record is present when its first 32-bit word (the
//   modification stamp) differs from that word of the default record. The capacity grows to exactly
//   what a key needs.
template <typename T>
class ZIntChunkMap {
    static_assert(std::is_trivially_copyable<T>::value, "records are moved as plain bytes");

public:
    static constexpr int CHUNK_SHIFT = ChunkArray<T>::CHUNK_SHIFT;
    static constexpr int CHUNK_SIZE = ChunkArray<T>::CHUNK_SIZE;
    static constexpr int CHUNK_MASK = ChunkArray<T>::CHUNK_MASK;

    // Room for keys below (wantedCapacity >> 8) + 1 chunks; no chunk is allocated yet.
    ZIntChunkMap(int wantedCapacity, const T& defaultValue)
        : chunks((wantedCapacity >> CHUNK_SHIFT) + 1), defaultRecord(defaultValue) {}

    // The record of a non-negative key. Without create null for an absent record; with create never
    // null, be the record present or not.
    T* getPtr(int key, bool create) {
        T* records = chunks.find(key);
        if (records == nullptr) {
            if (!create) {
                return nullptr;
            }
            records = chunks.create(key, CHUNK_SIZE, defaultRecord);
        }
        T* record = records + (key & CHUNK_MASK);
        return create || isPresent(*record) ? record : nullptr;
    }
    // The slot of a key, present or not, or null if its chunk was never made. Needs no lock as long
    // as the capacity at construction is not outgrown.
    T* getPtrUnlocked(int key) const {
        T* records = chunks.findUnlocked(key);
        return records == nullptr ? nullptr : records + (key & CHUNK_MASK);
    }
    bool isPresent(const T& record) const { return firstWord(record) != firstWord(defaultRecord); }

    int getCapacity() const { return chunks.getCapacity(); }
    int getChunkCount() const { return chunks.getCount(); }
    // The first chunk that exists: where a walk over all chunks may begin.
    int getFirstChunk() const { return chunks.getLowest(); }
    // Number of chunks that exist.
    int getUsedChunks() const { return chunks.getUsed(); }
    // The first of so many chunks in a row that do not exist; the chunk count if there are none.
    int findGap(int wantedChunks) const { return chunks.findGap(wantedChunks); }
    // The 256 records of a chunk, or null.
    T* chunkAt(int chunk) { return chunks.at(chunk); }
    const T* chunkAt(int chunk) const { return chunks.at(chunk); }
    // Key of slot 0 of the first chunk that exists, -1 if none does.
    int getMinKey() const {
        const int first = chunks.getLowest();
        return first == chunks.getCount() ? -1 : first << CHUNK_SHIFT;
    }
    // Frees a chunk, if it exists: its keys are absent again.
    void freeChunk(int chunk) { chunks.free(chunk); }
    void freeAllChunks() { chunks.freeAll(); }
    // Makes the capacity at least `keys`.
    void reserve(int keys) { chunks.reserve(keys); }
    // Bytes of the pointer array and of the chunks that exist.
    long getAllocatedBytes() const { return chunks.getAllocatedBytes(CHUNK_SIZE); }

private:
    static int firstWord(const T& record) {
        int word;
        memcpy(&word, &record, sizeof(word));
        return word;
    }

    ChunkArray<T> chunks;
    T defaultRecord;
};

// The specialisation for bare ints holds values, not records: a read of an absent key gives the
// default value, and writing the default value beyond the capacity allocates nothing. The capacity
// grows to half as much again as the key needs.
template <>
class ZIntChunkMap<int> {
public:
    static constexpr int CHUNK_SHIFT = ChunkArray<int>::CHUNK_SHIFT;
    static constexpr int CHUNK_SIZE = ChunkArray<int>::CHUNK_SIZE;
    static constexpr int CHUNK_MASK = ChunkArray<int>::CHUNK_MASK;

    ZIntChunkMap(int wantedChunks, int defaultValue)
        : chunks(wantedChunks), defaultInt(defaultValue) {}

    // The value of a non-negative key.
    int get(int key) const {
        const int* values = chunks.find(key);
        return values == nullptr ? defaultInt : values[key & CHUNK_MASK];
    }
    void put(int key, int value);

    int getCapacity() const { return chunks.getCapacity(); }
    int getChunkCount() const { return chunks.getCount(); }
    int getDefault() const { return defaultInt; }
    // The 256 values of a chunk, or null.
    const int* chunkAt(int chunk) const { return chunks.at(chunk); }
    long getAllocatedBytes() const { return chunks.getAllocatedBytes(CHUNK_SIZE); }

private:
    ChunkArray<int> chunks;
    int defaultInt;
};
