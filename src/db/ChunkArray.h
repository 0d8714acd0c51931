#pragma once

#include <cstddef>
#include <cstring>

// ChunkArray<T>: the pointers to the chunks of a chunk map, each chunk an array of T made by new[].
//
// DESCRIPTION
//   Chunks never move. The array of pointers does when it outgrows its room, so finding a chunk
//   needs the owner's lock; below a count that was asked for at construction it stays in its place,
//   and findUnlocked may read it. Growing by one chunk at a time takes amortised constant time, and
//   a walk that begins at getLowest() passes over what was freed at the low end.
// IMPLEMENTATION
//   `count` pointers are in use, null where there is no chunk; there is room for some more behind
//   them, which are null too. No chunk lies below `lowest`.
template <typename T>
class ChunkArray {
public:
    static constexpr int CHUNK_SHIFT = 8;
    static constexpr int CHUNK_SIZE = 1 << CHUNK_SHIFT;
    static constexpr int CHUNK_MASK = CHUNK_SIZE - 1;

    explicit ChunkArray(int wantedCount)
        : chunks(nullptr), count(0), room(0), lowest(0), used(0), capacity(0) {
        growTo(wantedCount);
    }
    ~ChunkArray() {
        freeAll();
        delete[] chunks;
    }
    ChunkArray(const ChunkArray&) = delete;
    ChunkArray& operator=(const ChunkArray&) = delete;

    int getCount() const { return count; }
    // Keys that the pointers reach.
    int getCapacity() const { return capacity; }
    // Number of chunks that exist.
    int getUsed() const { return used; }
    // The chunk of a number below the count, or null.
    T* at(int chunk) const { return chunks[chunk]; }
    // The chunk of a key, or null.
    T* find(int key) const {
        const int chunk = key >> CHUNK_SHIFT;
        return chunk < count ? chunks[chunk] : nullptr;
    }
    // The same for any key without the lock: a chunk is filled before its pointer is published.
    T* findUnlocked(int key) const {
        const int chunk = key >> CHUNK_SHIFT;
        if (key < 0 || chunk >= __atomic_load_n(&count, __ATOMIC_ACQUIRE)) {
            return nullptr;
        }
        T** array = __atomic_load_n(&chunks, __ATOMIC_ACQUIRE);
        return __atomic_load_n(&array[chunk], __ATOMIC_ACQUIRE);
    }
    // Number of the first chunk that exists, the count if none does.
    int getLowest() const {
        while (lowest < count && chunks[lowest] == nullptr) {
            lowest++;
        }
        return lowest;
    }
    // Number of the first of `wanted` chunks in a row that do not exist; the count if there are
    // none below it.
    int findGap(int wanted) const {
        int gap = 0;
        for (int chunk = 0; chunk < count; chunk++) {
            gap = chunks[chunk] == nullptr ? gap + 1 : 0;
            if (gap == wanted) {
                return chunk + 1 - wanted;
            }
        }
        return count;
    }

    // Makes the chunk of a key, of `size` elements that are copies of one value.
    T* create(int key, size_t size, const T& value) {
        const int chunk = key >> CHUNK_SHIFT;
        if (chunk >= count) {
            growTo(chunk + 1);
        }
        T* values = new T[size];
        for (size_t i = 0; i < size; i++) {
            values[i] = value;
        }
        __atomic_store_n(&chunks[chunk], values, __ATOMIC_RELEASE);
        lowest = chunk < lowest ? chunk : lowest;
        used++;
        return values;
    }
    // Frees a chunk, if it exists.
    void free(int chunk) {
        if (chunk < 0 || chunk >= count || chunks[chunk] == nullptr) {
            return;
        }
        T* values = chunks[chunk];
        __atomic_store_n(&chunks[chunk], static_cast<T*>(nullptr), __ATOMIC_RELEASE);
        delete[] values;
        used--;
    }
    void freeAll() {
        for (int chunk = getLowest(); chunk < count; chunk++) {
            free(chunk);
        }
    }
    // Makes the count at least `wanted`.
    void growTo(int wanted) {
        if (wanted <= count) {
            return;
        }
        T** old = nullptr;
        if (wanted > room) {
            const int generous = room + room / 2;
            const int newRoom = wanted > generous ? wanted : generous;
            T** grown = new T*[static_cast<size_t>(newRoom)]();
            if (count > 0) {
                memcpy(grown, chunks, sizeof(T*) * static_cast<size_t>(count));
            }
            old = chunks;
            room = newRoom;
            __atomic_store_n(&chunks, grown, __ATOMIC_RELEASE);
        }
        __atomic_store_n(&count, wanted, __ATOMIC_RELEASE);
        // The largest count covers the whole range of int; its capacity would be one too many.
        capacity = wanted > 0x7fffffff >> CHUNK_SHIFT ? 0x7fffffff : wanted << CHUNK_SHIFT;
        delete[] old;
    }
    // Grows so that keys below `keys` need no further growth.
    void reserve(int keys) {
        if (keys > capacity) {
            growTo(((keys - 1) >> CHUNK_SHIFT) + 1);
        }
    }
    // Bytes of the pointers and of the chunks, each of `size` elements.
    long getAllocatedBytes(size_t size) const {
        return static_cast<long>(count) * static_cast<long>(sizeof(T*)) +
               static_cast<long>(used) * static_cast<long>(size * sizeof(T));
    }

private:
    T** chunks;
    int count;
    int room;
    mutable int lowest;
    int used;
    int capacity;
};
