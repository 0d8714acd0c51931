#pragma once

#include "core/ground/ZTable.h"

#include <type_traits>

// ZSet<K>: a set of plain values. Cost, growth and locking as in ZTable. 0 is not a valid key of a
// ZSet<int>: asking for it is an internal error, since 0 means "no row" in every table.
template <typename K>
class ZSet : public ZTable<K> {
public:
    explicit ZSet(int wantedCapacity) : ZTable<K>(wantedCapacity) {}

    void add(const K& key) {
        const int slot = this->insertion_index(key);
        if (slot >= 0 && this->occupy(slot, key)) {
            rehash(this->grownCapacity());
        }
    }
    bool contains(const K& key) const { return get_index(key) >= 0; }
    int get_index(const K& key) const {
        if constexpr (std::is_same<K, int>::value) {
            Logger::assertTrue(key != 0, VDK_HERE);
        }
        return ZTable<K>::get_index(key);
    }
    void remove(const K& key) {
        const int slot = get_index(key);
        if (slot >= 0) {
            this->states[slot] = REMOVED;
            this->size--;
        }
    }
    // Keeps the arrays and their capacity.
    void clear() {
        memset(this->states, FREE, static_cast<size_t>(this->capacity));
        this->size = 0;
        this->computeLimits();
    }
    // For a table whose keys come and go: rebuilds it at a size that fits its keys once many slots
    // are removed ones. Without that every search walks over them, and the table grows with all the
    // keys there ever were. Constant time for each removal.
    void compact() {
        const int wanted = this->compactCapacity();
        if (wanted != 0) {
            rehash(wanted);
        }
    }
    // Rebuilds the table with a capacity of the prime table; removed slots vanish.
    void rehash(int newCapacity);
};

// Implementation

template <typename K>
void ZSet<K>::rehash(int newCapacity) {
    K* oldKeys = this->keys;
    unsigned char* oldStates = this->states;
    const int oldCapacity = this->capacity;
    this->allocateKeys(newCapacity);
    for (int i = oldCapacity - 1; i >= 0; i--) {
        if (oldStates[i] == FULL) {
            const int slot = this->insertion_index(oldKeys[i]);
            this->keys[slot] = oldKeys[i];
            this->states[slot] = FULL;
        }
    }
    this->computeLimits();
    delete[] oldKeys;
    delete[] oldStates;
}
