#pragma once

#include "core/ground/Logger.h"
#include "core/ground/PrimeFinder.h"
#include "core/ground/ZHash.h"

#include <cstring>

// ZTable<K>: the open-addressing core that ZSet and ZMap share: keys, slot states, probing, limits.
//
// DESCRIPTION
//   Look-up, insertion and removal take expected constant time. A table never holds more than
//   maxSize = capacity x loadFactor keys, and is rebuilt with twice the capacity when it would, or
//   when no never-used slot is left: many removals use those up, and they alone end a search.
//   Slots move when the table grows. The owner's lock guards everything.
// IMPLEMENTATION
//   Double hashing with h = zmap_hashCode(key) & 0x7fffffff: the first slot is h mod capacity, the
//   step (h mod (capacity - 2)) + 1; capacity is prime, so the probes reach every slot. The state
//   byte alone tells what is valid. FREE ends a search, REMOVED does not.
enum ZSlotState : unsigned char { FREE = 0, FULL = 1, REMOVED = 2 };

template <typename K>
class ZTable {
public:
    ZTable(const ZTable&) = delete;
    ZTable& operator=(const ZTable&) = delete;

    int getSize() const { return size; }
    int getCapacity() const { return capacity; }
    int getFree() const { return free; }
    int getMaxSize() const { return maxSize; }
    // Walking a table: for slot from 0 below getCapacity(), where isFull(slot). No insertion and no
    // removal meanwhile.
    bool isFull(int slot) const { return states[slot] == FULL; }
    const K& keyAt(int slot) const { return keys[slot]; }
    bool contains(const K& key) const { return get_index(key) >= 0; }

    // Slot of the key, or -1.
    int get_index(const K& key) const {
        int step;
        int index = firstProbe(key, &step);
        while (states[index] != FREE) {
            if (states[index] == FULL && zmap_equal(keys[index], key)) {
                return index;
            }
            index = nextProbe(index, step);
        }
        return -1;
    }

    // Slot to write a new key to, a removed one if the search passed one; the complement of its
    // slot when the key is there already.
    int insertion_index(const K& key) const {
        int step;
        int index = firstProbe(key, &step);
        int reusable = -1;
        while (states[index] != FREE) {
            if (states[index] == FULL) {
                if (zmap_equal(keys[index], key)) {
                    return ~index;
                }
            } else if (reusable < 0) {
                reusable = index;
            }
            index = nextProbe(index, step);
        }
        return reusable < 0 ? index : reusable;
    }

protected:
    explicit ZTable(int wantedCapacity) : initialCapacity(wantedCapacity) {
        Logger::assertTrue(wantedCapacity >= 1, VDK_HERE);
        initKeys(wantedCapacity);
    }
    ~ZTable() { freeKeys(); }

    void initKeys(int wantedCapacity) {
        allocateKeys(PrimeFinder::nextPrime(wantedCapacity));
        loadFactor = 0.6f;
        size = 0;
        computeLimits();
    }
    // Replaces keys and states by fresh arrays for newCapacity slots, without freeing the old ones.
    // Changes nothing when memory runs out.
    void allocateKeys(int newCapacity) {
        unsigned char* newStates = new unsigned char[static_cast<size_t>(newCapacity)];
        try {
            keys = new K[static_cast<size_t>(newCapacity)];
        } catch (...) {
            delete[] newStates;
            throw;
        }
        memset(newStates, FREE, static_cast<size_t>(newCapacity));
        states = newStates;
        capacity = newCapacity;
    }
    void freeKeys() {
        delete[] keys;
        delete[] states;
        keys = nullptr;
        states = nullptr;
    }
    void computeLimits() {
        const int wanted = static_cast<int>(static_cast<float>(capacity) * loadFactor);
        maxSize = capacity - 1 < wanted ? capacity - 1 : wanted;
        free = capacity - size;
    }
    // Marks a slot found by insertion_index as taken. True if the table has to grow now.
    bool occupy(int slot, const K& key) {
        keys[slot] = key;
        if (states[slot] == FREE) {
            free--;
        }
        states[slot] = FULL;
        size++;
        return size > maxSize || free == 0;
    }
    // Capacity that a table of these keys gets when its removed slots go: twice the keys fit before
    // it grows again. 0 while the removed slots are too few to be worth it.
    int compactCapacity() const {
        if (capacity - size - free <= capacity / 4) {
            return 0;
        }
        const int room = size > 0x1fffffff ? capacity : size * 4;
        return PrimeFinder::nextPrime(room < initialCapacity ? initialCapacity : room);
    }
    int grownCapacity() const {
        return PrimeFinder::nextPrime(capacity > 0x3fffffff ? PrimeFinder::LARGEST_PRIME
                                                            : capacity * 2);
    }

    int initialCapacity;
    int capacity;
    K* keys;
    unsigned char* states;
    int size;
    int free;
    int maxSize;
    float loadFactor;

private:
    int firstProbe(const K& key, int* step) const {
        const int hash = zmap_hashCode(key) & 0x7fffffff;
        *step = hash % (capacity - 2) + 1;
        return hash % capacity;
    }
    int nextProbe(int index, int step) const {
        const int next = index - step;
        return next < 0 ? next + capacity : next;
    }
};
