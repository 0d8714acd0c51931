#pragma once

#include <cstring>
#include <type_traits>

// ZIntChunkMap<T>: records addressed by a small non-negative int.
//
// DESCRIPTION
//   A read costs one shift, one mask and two dependent loads. Chunks of 256 records are allocated
//   when one of their slots is first written and never move, so a record pointer stays valid while
//   the map grows; the array of chunk pointers does move, so finding a record needs the owner's
//   lock. The exception: below a capacity that was reserved at construction that array stays in
//   its place, and getPtrUnlocked may read it.
// IMPLEMENTATION
//   Key k lies in chunk k >> 8, slot k & 255. A record is present when its first 32-bit word (the
//   modification stamp) differs from that word of the default record. The pointer array grows to
//   exactly what a key needs.
template <typename T>
class ZIntChunkMap {
    static_assert(std::is_trivially_copyable<T>::value, "records are moved as plain bytes");

public:
    static constexpr int CHUNK_SHIFT = 8;
    static constexpr int CHUNK_SIZE = 1 << CHUNK_SHIFT;
    static constexpr int CHUNK_MASK = CHUNK_SIZE - 1;

    // Room for keys below (wantedCapacity >> 8) + 1 chunks; no chunk is allocated yet.
    ZIntChunkMap(int wantedCapacity, const T& defaultValue);
    ~ZIntChunkMap();
    ZIntChunkMap(const ZIntChunkMap&) = delete;
    ZIntChunkMap& operator=(const ZIntChunkMap&) = delete;

    // The record of a non-negative key. Without create null for an absent record; with create never
    // null, be the record present or not.
    T* getPtr(int key, bool create) {
        const int chunk = key >> CHUNK_SHIFT;
        if (chunk < chunkCount && chunks[chunk] != nullptr) {
            T* record = chunks[chunk] + (key & CHUNK_MASK);
            return create || isPresent(*record) ? record : nullptr;
        }
        return create ? createPtr(key) : nullptr;
    }
    // The slot of a key, present or not, or null if its chunk was never made. Needs no lock as long
    // as the pointer array is not outgrown: a chunk is filled before its pointer is published.
    T* getPtrUnlocked(int key) const {
        const int chunk = key >> CHUNK_SHIFT;
        if (key < 0 || chunk >= __atomic_load_n(&chunkCount, __ATOMIC_ACQUIRE)) {
            return nullptr;
        }
        T** array = __atomic_load_n(&chunks, __ATOMIC_ACQUIRE);
        T* records = __atomic_load_n(&array[chunk], __ATOMIC_ACQUIRE);
        return records == nullptr ? nullptr : records + (key & CHUNK_MASK);
    }
    bool isPresent(const T& record) const { return firstWord(record) != firstWord(defaultRecord); }

    int getCapacity() const { return capacity; }
    int getChunkCount() const { return chunkCount; }
    // The 256 records of a chunk, or null.
    T* chunkAt(int chunk) { return chunks[chunk]; }
    const T* chunkAt(int chunk) const { return chunks[chunk]; }
    // Key of slot 0 of the first chunk that exists, -1 if none does.
    int getMinKey() const;
    // Frees a chunk, if it exists: its keys are absent again.
    void freeChunk(int chunk);
    void freeAllChunks();
    // Grows the pointer array so that keys below `keys` need no further growth.
    void reserve(int keys) {
        if (keys > capacity) {
            growTo(((keys - 1) >> CHUNK_SHIFT) + 1);
        }
    }
    // Bytes of the pointer array and of the chunks that exist.
    long getAllocatedBytes() const;

private:
    static int firstWord(const T& record) {
        int word;
        memcpy(&word, &record, sizeof(word));
        return word;
    }
    T* createPtr(int key);
    void growTo(int wantedChunks);

    T** chunks;
    int capacity;
    int chunkCount;
    T defaultRecord;
};

// The specialisation for bare ints holds values, not records: a read of an absent key gives the
// default value, and writing the default value beyond the capacity allocates nothing. The pointer
// array grows to half as much again as the key needs.
template <>
class ZIntChunkMap<int> {
public:
    static constexpr int CHUNK_SHIFT = 8;
    static constexpr int CHUNK_SIZE = 1 << CHUNK_SHIFT;
    static constexpr int CHUNK_MASK = CHUNK_SIZE - 1;

    ZIntChunkMap(int wantedChunks, int defaultValue);
    ~ZIntChunkMap();
    ZIntChunkMap(const ZIntChunkMap&) = delete;
    ZIntChunkMap& operator=(const ZIntChunkMap&) = delete;

    // The value of a non-negative key.
    int get(int key) const {
        const int chunk = key >> CHUNK_SHIFT;
        return chunk < chunkCount && chunks[chunk] != nullptr ? chunks[chunk][key & CHUNK_MASK]
                                                              : defaultInt;
    }
    void put(int key, int value);

    int getCapacity() const { return capacity; }
    int getChunkCount() const { return chunkCount; }
    int getDefault() const { return defaultInt; }
    // The 256 values of a chunk, or null.
    const int* chunkAt(int chunk) const { return chunks[chunk]; }
    long getAllocatedBytes() const;

private:
    void growTo(int wantedChunks);

    int** chunks;
    int capacity;
    int chunkCount;
    int defaultInt;
};

// Implementation

template <typename T>
ZIntChunkMap<T>::ZIntChunkMap(int wantedCapacity, const T& defaultValue)
    : chunks(nullptr), capacity(0), chunkCount(0), defaultRecord(defaultValue) {
    growTo((wantedCapacity >> CHUNK_SHIFT) + 1);
}

template <typename T>
ZIntChunkMap<T>::~ZIntChunkMap() {
    freeAllChunks();
    delete[] chunks;
}

template <typename T>
int ZIntChunkMap<T>::getMinKey() const {
    for (int i = 0; i < chunkCount; i++) {
        if (chunks[i] != nullptr) {
            return i << CHUNK_SHIFT;
        }
    }
    return -1;
}

template <typename T>
void ZIntChunkMap<T>::freeChunk(int chunk) {
    if (chunk >= 0 && chunk < chunkCount) {
        T* records = chunks[chunk];
        __atomic_store_n(&chunks[chunk], static_cast<T*>(nullptr), __ATOMIC_RELEASE);
        delete[] records;
    }
}

template <typename T>
void ZIntChunkMap<T>::freeAllChunks() {
    for (int i = 0; i < chunkCount; i++) {
        freeChunk(i);
    }
}

template <typename T>
long ZIntChunkMap<T>::getAllocatedBytes() const {
    long bytes = static_cast<long>(chunkCount) * static_cast<long>(sizeof(T*));
    for (int i = 0; i < chunkCount; i++) {
        if (chunks[i] != nullptr) {
            bytes += static_cast<long>(CHUNK_SIZE * sizeof(T));
        }
    }
    return bytes;
}

template <typename T>
T* ZIntChunkMap<T>::createPtr(int key) {
    const int chunk = key >> CHUNK_SHIFT;
    if (chunk >= chunkCount) {
        growTo(chunk + 1);
    }
    T* records = new T[CHUNK_SIZE];
    for (int i = 0; i < CHUNK_SIZE; i++) {
        records[i] = defaultRecord;
    }
    __atomic_store_n(&chunks[chunk], records, __ATOMIC_RELEASE);
    return records + (key & CHUNK_MASK);
}

template <typename T>
void ZIntChunkMap<T>::growTo(int wantedChunks) {
    T** grown = new T*[static_cast<size_t>(wantedChunks)]();
    T** old = chunks;
    if (chunkCount > 0) {
        memcpy(grown, old, sizeof(T*) * static_cast<size_t>(chunkCount));
    }
    __atomic_store_n(&chunks, grown, __ATOMIC_RELEASE);
    __atomic_store_n(&chunkCount, wantedChunks, __ATOMIC_RELEASE);
    // The largest chunk count covers the whole range of int; its capacity would be one too many.
    capacity = wantedChunks > 0x7fffffff >> CHUNK_SHIFT ? 0x7fffffff : wantedChunks << CHUNK_SHIFT;
    delete[] old;
}
