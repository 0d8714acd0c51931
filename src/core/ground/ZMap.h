#pragma once

#include "core/ground/ZTable.h"

// ZMap<K, V>: a map from plain keys to plain values. Cost, growth and locking as in ZTable. A
// pointer from getPtr is valid until the next insertion.
template <typename K, typename V>
class ZMap : public ZTable<K> {
public:
    explicit ZMap(int wantedCapacity) : ZTable<K>(wantedCapacity) {
        values = new V[static_cast<size_t>(this->capacity)];
    }
    ~ZMap() { delete[] values; }

    // Adds the key or overwrites its value.
    void put(const K& key, const V& value) {
        const int slot = this->insertion_index(key);
        if (slot < 0) {
            values[~slot] = value;
            return;
        }
        values[slot] = value;
        if (this->occupy(slot, key)) {
            rehash(this->grownCapacity());
        }
    }
    // The key's value, or V() if there is none.
    V get(const K& key) const {
        const int slot = this->get_index(key);
        return slot < 0 ? V() : values[slot];
    }
    V* getPtr(const K& key) {
        const int slot = this->get_index(key);
        return slot < 0 ? nullptr : &values[slot];
    }
    const V* getPtr(const K& key) const {
        const int slot = this->get_index(key);
        return slot < 0 ? nullptr : &values[slot];
    }
    // Takes the key out and gives its old value, V() if there was none. The slot's key and value
    // are zeroed, so that no pointer lingers.
    V remove(const K& key) {
        const int slot = this->get_index(key);
        if (slot < 0) {
            return V();
        }
        const V old = values[slot];
        this->states[slot] = REMOVED;
        this->size--;
        this->keys[slot] = K();
        values[slot] = V();
        return old;
    }
    // Forgets everything and goes back to the capacity asked for at construction.
    void clear() {
        V* freshValues = new V[static_cast<size_t>(PrimeFinder::nextPrime(this->initialCapacity))];
        delete[] values;
        values = freshValues;
        this->freeKeys();
        this->initKeys(this->initialCapacity);
    }
    const V& valueAt(int slot) const { return values[slot]; }
    V& valueAt(int slot) { return values[slot]; }
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

private:
    V* values;
};

// Implementation

template <typename K, typename V>
void ZMap<K, V>::rehash(int newCapacity) {
    K* oldKeys = this->keys;
    unsigned char* oldStates = this->states;
    V* oldValues = values;
    const int oldCapacity = this->capacity;
    V* newValues = new V[static_cast<size_t>(newCapacity)];
    try {
        this->allocateKeys(newCapacity);
    } catch (...) {
        delete[] newValues;
        throw;
    }
    values = newValues;
    for (int i = oldCapacity - 1; i >= 0; i--) {
        if (oldStates[i] == FULL) {
            const int slot = this->insertion_index(oldKeys[i]);
            this->keys[slot] = oldKeys[i];
            values[slot] = oldValues[i];
            this->states[slot] = FULL;
        }
    }
    this->computeLimits();
    delete[] oldKeys;
    delete[] oldStates;
    delete[] oldValues;
}
