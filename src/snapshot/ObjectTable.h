#pragma once

#include <cstdint>

// ObjectTable: what a heap walk knows of the objects that have a record, by their indices: 8 bytes
// and a bit an object. It grows as objects come, and large blocks grow where they are.
class ObjectTable {
public:
    ObjectTable() : values(nullptr), bits(nullptr), capacity(0) {}
    ~ObjectTable();
    ObjectTable(const ObjectTable&) = delete;
    ObjectTable& operator=(const ObjectTable&) = delete;

    // The object has a record. The index is 1 or more.
    void add(int index, uintptr_t value) {
        if (index >= capacity) {
            grow(index);
        }
        values[index] = value;
        bits[index >> 6] |= uint64_t(1) << (index & 63);
    }
    bool contains(int index) const {
        return index > 0 && index < capacity && (bits[index >> 6] >> (index & 63) & 1) != 0;
    }
    // Of an object that has a record.
    uintptr_t get(int index) const { return values[index]; }

private:
    void grow(int index);

    uintptr_t* values;
    uint64_t* bits;
    int capacity; // divides by 64
};
