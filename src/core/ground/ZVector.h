#pragma once

#include <cstdlib>
#include <cstring>
#include <type_traits>

// DESCRIPTION
//   ZVector<T>: growable array of plain records and pointers. Appending is amortised constant;
//   growth doubles the capacity and moves all elements with one block copy, so pointers to elements
//   do not survive a push. Every index is checked in every build; a bad one is an internal error
//   (zvectorFail). Nothing here locks: the owner's lock guards it.
//   ZVectorSafe<T>: the same for elements that own memory, above all ZString; elements are copied
//   by assignment, constructed with the array and destroyed with it.
// IMPLEMENTATION
//   values points to `capacity` elements, of which the first `size` are in use. Elements from size
//   on are default-constructed or left over from removals; they are never handed out.

// Reports op, index and size as an internal error. Never returns.
[[noreturn]] void zvectorFail(const char* op, int i, int n);

constexpr int ZVECTOR_DEFAULT_CAPACITY = 10;

// What a vector can do with the elements that it has, wherever their memory comes from.
template <typename T>
class CheckedArray {
public:
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
    // Forgets all elements; the capacity stays.
    void clear() { size = 0; }
    int getSize() const { return size; }
    bool isEmpty() const { return size == 0; }
    // The elements in order. Valid until the next push.
    T* data() { return values; }
    const T* data() const { return values; }

protected:
    CheckedArray() : values(nullptr), size(0), capacity(0) {}
    void check(const char* op, int i) const {
        if (i < 0 || i >= size) {
            zvectorFail(op, i, size);
        }
    }

    T* values;
    int size;
    int capacity;
};

template <typename T>
class ZVector : public CheckedArray<T> {
public:
    explicit ZVector(int initialCapacity = ZVECTOR_DEFAULT_CAPACITY)
        : ZVector(initialCapacity, AnyElement()) {
        static_assert(std::is_trivially_copyable<T>::value,
                      "elements that own memory belong in a ZVectorSafe");
    }
    ZVector(const ZVector&) = delete;
    ZVector& operator=(const ZVector&) = delete;
    virtual void copyValues(const T* from, T* to, int count);
    virtual ~ZVector() { delete[] values; }

    void push(const T& value) {
        if (size == capacity) {
            // It may be an element of this vector, which growing moves.
            const T copy = value;
            grow();
            values[size++] = copy;
            return;
        }
        values[size++] = value;
    }
    // Appends count elements of undefined value and gives the place of the first, valid until the
    // next growth.
    T* extend(int count) {
        if (count < 0) {
            zvectorFail("zvector::extend", count, size);
        }
        while (capacity - size < count) {
            grow();
        }
        T* const first = values + size;
        size += count;
        return first;
    }
    // Removes the elements from `from` up to, not including, `to`; the tail moves down.
    void removeRange(int from, int to);
    int getCapacity() const { return capacity; }

protected:
    using CheckedArray<T>::values;
    using CheckedArray<T>::size;
    using CheckedArray<T>::capacity;

    struct AnyElement {};
    ZVector(int initialCapacity, AnyElement) {
        if (initialCapacity < 1) {
            zvectorFail("zvector::zvector", initialCapacity, 0);
        }
        values = new T[static_cast<size_t>(initialCapacity)];
        capacity = initialCapacity;
    }
    void grow();
};

template <typename T>
class ZVectorSafe : public ZVector<T> {
public:
    explicit ZVectorSafe(int initialCapacity = ZVECTOR_DEFAULT_CAPACITY)
        : ZVector<T>(initialCapacity, typename ZVector<T>::AnyElement()) {}
    void copyValues(const T* from, T* to, int count) override {
        for (int i = 0; i < count; i++) {
            to[i] = from[i];
        }
    }
    // Orders strings bytewise, by the C library's qsort with qsortCompare.
    void sort();
};

// Implementation

template <typename T>
void ZVector<T>::copyValues(const T* from, T* to, int count) {
    if constexpr (std::is_trivially_copyable<T>::value) {
        memcpy(to, from, sizeof(T) * static_cast<size_t>(count));
    } else {
        zvectorFail("zvector::copyValues", count, count);
    }
}

template <typename T>
void ZVector<T>::grow() {
    if (capacity > 0x3fffffff) {
        zvectorFail("zvector::push", capacity, size);
    }
    T* grown = new T[static_cast<size_t>(capacity) * 2];
    copyValues(values, grown, size);
    delete[] values;
    values = grown;
    capacity *= 2;
}

template <typename T>
void ZVector<T>::removeRange(int from, int to) {
    if (to < 0 || to > size) {
        zvectorFail("zvector::removeRange/toIndex", to, size);
    }
    if (from < 0) {
        zvectorFail("zvector::removeRange/fromIndex", from, size);
    }
    if (from > to) {
        zvectorFail("zvector::removeRange", from, to);
    }
    if (from == to) {
        return;
    }
    for (int i = to; i < size; i++) {
        values[from + i - to] = values[i];
    }
    size -= to - from;
}

// Compares two elements of a ZVectorSafe<ZString> as strcmp does.
int qsortCompare(const void* left, const void* right);

template <typename T>
void ZVectorSafe<T>::sort() {
    // The elements hold no pointer into themselves, so moving them as blocks is sound.
    qsort(static_cast<void*>(this->values), static_cast<size_t>(this->size), sizeof(T),
          qsortCompare);
}
