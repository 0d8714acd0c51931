#pragma once

#include "classfile/ClassArena.h"
#include "core/ground/ZVector.h"

#include <cstring>
#include <type_traits>

// ArenaVector<T>: a growable array of plain values or pointers in a ClassArena. Takes no memory
// while it is empty; growth doubles the capacity and leaves the old array to the arena. Indices are
// checked in every build, as in ZVector.
template <typename T>
class ArenaVector {
    static_assert(std::is_trivially_copyable<T>::value, "the arena runs no destructors");

public:
    explicit ArenaVector(ClassArena& owner)
        : arena(&owner), values(nullptr), size(0), capacity(0) {}

    void push(const T& value) {
        if (size == capacity) {
            const T copy = value;
            reserve(capacity == 0 ? 4 : capacity * 2);
            values[size++] = copy;
            return;
        }
        values[size++] = value;
    }
    T pop() {
        if (size < 1) {
            zvectorFail("zvector::pop", size - 1, size);
        }
        return values[--size];
    }
    T& peek() {
        if (size < 1) {
            zvectorFail("zvector::peek", size - 1, size);
        }
        return values[size - 1];
    }
    const T& get(int i) const {
        check("zvector::get", i);
        return values[i];
    }
    void set(int i, const T& value) {
        check("zvector::set", i);
        values[i] = value;
    }
    T& operator[](int i) {
        check("zvector::[]", i);
        return values[i];
    }
    const T& operator[](int i) const {
        check("zvector::[]", i);
        return values[i];
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
    void clear() { size = 0; }
    int getSize() const { return size; }
    bool isEmpty() const { return size == 0; }
    T* data() { return values; }
    const T* data() const { return values; }
    ClassArena& getArena() const { return *arena; }

private:
    void check(const char* op, int i) const {
        if (i < 0 || i >= size) {
            zvectorFail(op, i, size);
        }
    }

    ClassArena* arena;
    T* values;
    int size;
    int capacity;
};
