#pragma once

#include "classfile/ClassArena.h"
#include "core/ground/ZVector.h"

#include <cstring>
#include <type_traits>

// ArenaVector<T>: a growable array of plain values or pointers in a ClassArena. Takes no memory
// while it is empty; growth doubles the capacity and leaves the old array to the arena. Indices are
// checked in every build, as in ZVector.
template <typename T>
class ArenaVector : public CheckedArray<T> {
    static_assert(std::is_trivially_copyable<T>::value, "the arena runs no destructors");

public:
    explicit ArenaVector(ClassArena& owner) : arena(&owner) {}

    void push(const T& value) {
        if (size == capacity) {
            const T copy = value;
            reserve(capacity == 0 ? 4 : capacity * 2);
            values[size++] = copy;
            return;
        }
        values[size++] = value;
    }
    // Puts value in front of element i; i may be the size.
    void insert(int i, const T& value) {
        push(value);
        check("zvector::insert", i);
        for (int at = size - 1; at > i; at--) {
            values[at] = values[at - 1];
        }
        values[i] = value;
    }
    // Removes element i; the order of the rest stays.
    void remove(int i) {
        check("zvector::remove", i);
        for (int at = i + 1; at < size; at++) {
            values[at - 1] = values[at];
        }
        size--;
    }
    // Makes room for count elements in all.
    void reserve(int count) {
        if (count <= capacity) {
            return;
        }
        if (count > 0x3fffffff) {
            zvectorFail("zvector::push", count, size);
        }
        T* const grown = arena->template allocateArray<T>(count);
        if (size > 0) {
            memcpy(static_cast<void*>(grown), values, sizeof(T) * static_cast<size_t>(size));
        }
        values = grown;
        capacity = count;
    }
    // Makes the size `count`, for elements that were filled in behind it; there must be room.
    void resize(int count) {
        if (count < 0 || count > capacity) {
            zvectorFail("zvector::resize", count, capacity);
        }
        size = count;
    }
    // Appends count values at once.
    void append(const T* from, int count) {
        if (count > capacity - size) {
            reserve(size + count > capacity * 2 ? size + count : capacity * 2);
        }
        if (count > 0) {
            memcpy(static_cast<void*>(values + size), from, sizeof(T) * static_cast<size_t>(count));
        }
        size += count;
    }
    ClassArena& getArena() const { return *arena; }

private:
    using CheckedArray<T>::check;
    using CheckedArray<T>::values;
    using CheckedArray<T>::size;
    using CheckedArray<T>::capacity;

    ClassArena* arena;
};
