#pragma once

#include "core/ground/ZVector.h"

#include <cstring>

// DESCRIPTION
//   ZStringImpl<C>: a zero-terminated, growable string of bytes (ZString) or of UTF-16 units
//   (ZWString). Appending is amortised linear. An empty string owns no memory. Text is kept as
//   bytes; nothing here decodes it. A null pointer is an internal error (zstringFail).
// IMPLEMENTATION
//   chars points at `capacity` units, terminator included, or at the shared EMPTY_STR when capacity
//   is 1 or less. Only a zero may ever be stored there. delete_c_str knows the difference; every
//   path that replaces chars goes through it.

// Reports a misuse of a string; the number tells the place apart. Never returns.
[[noreturn]] void zstringFail(int line);

template <typename C>
class ZStringImpl {
public:
    static C EMPTY_STR[1];

    ZStringImpl() : chars(EMPTY_STR), capacity(1), length(0) {}
    ZStringImpl(const C* text) : ZStringImpl() {
        if (text == nullptr) {
            zstringFail(91);
        }
        assign(text, lengthOf(text));
    }
    // The first count units of text.
    ZStringImpl(const C* text, int count) : ZStringImpl() {
        if (text == nullptr) {
            zstringFail(98);
        }
        assign(text, count);
    }
    ZStringImpl(const ZStringImpl& other) : ZStringImpl() { assign(other.chars, other.length); }
    ZStringImpl(ZStringImpl&& other) noexcept : ZStringImpl() { swap(other); }
    ~ZStringImpl() { delete_c_str(chars); }

    ZStringImpl& operator=(const ZStringImpl& other) {
        if (this != &other) {
            assign(other.chars, other.length);
        }
        return *this;
    }
    ZStringImpl& operator=(ZStringImpl&& other) noexcept {
        swap(other);
        return *this;
    }
    ZStringImpl& operator=(const C* text) {
        if (text == nullptr) {
            zstringFail(112);
        }
        return *this = ZStringImpl(text);
    }

    void append(const ZStringImpl& other) { append(other.chars, other.length); }
    void append(const C* text) {
        if (text == nullptr) {
            zstringFail(361);
        }
        append(text, lengthOf(text));
    }
    void append(const C* text, int count);
    void appendChar(C unit) { append(&unit, 1); }
    // The decimal digits of value, with a minus sign if it is negative.
    void appendLong(long value);

    // Makes room for n units, terminator included.
    void ensureCapacity(int n);
    // The units from `from` up to, not including, `to`.
    ZStringImpl substring(int from, int to) const;
    ZStringImpl substring(int from) const { return substring(from, length); }
    // Pushes the pieces between the delimiters on out. Each unit of `delimiters` separates; empty
    // pieces are dropped.
    void split(const C* delimiters, ZVectorSafe<ZStringImpl>& out) const;

    const C* c_str() const { return chars; }
    // The writable units. Units up to getLength() may be changed, the terminator may not.
    C* data() { return chars; }
    int getLength() const { return length; }
    int getCapacity() const { return capacity; }
    bool isEmpty() const { return length == 0; }
    C charAt(int i) const {
        if (i < 0 || i >= length) {
            zstringFail(374);
        }
        return chars[i];
    }
    void clear() { *this = ZStringImpl(); }

    bool operator==(const ZStringImpl& other) const {
        return length == other.length &&
               memcmp(chars, other.chars, sizeof(C) * static_cast<size_t>(length)) == 0;
    }
    bool operator!=(const ZStringImpl& other) const { return !(*this == other); }
    bool operator==(const C* text) const { return *this == ZStringImpl(text); }
    bool operator!=(const C* text) const { return !(*this == text); }
    bool startsWith(const C* prefix) const {
        if (prefix == nullptr) {
            zstringFail(375);
        }
        const int count = lengthOf(prefix);
        return count <= length &&
               memcmp(chars, prefix, sizeof(C) * static_cast<size_t>(count)) == 0;
    }
    bool endsWith(const C* suffix) const {
        if (suffix == nullptr) {
            zstringFail(376);
        }
        const int count = lengthOf(suffix);
        return count <= length &&
               memcmp(chars + length - count, suffix, sizeof(C) * static_cast<size_t>(count)) == 0;
    }
    // Position of the first occurrence at or after `from`, or -1.
    int indexOf(C unit, int from = 0) const;
    int indexOf(const C* text, int from = 0) const;
    int lastIndexOf(C unit) const;
    bool contains(const C* text) const { return indexOf(text) >= 0; }
    void replaceAll(C unit, C by);

    // A zeroed buffer of n units; the shared empty one for n of 1 or less.
    static C* new_c_str(int n);
    // Frees a buffer unless it is null or the shared empty one.
    static void delete_c_str(C* buffer);
    static int lengthOf(const C* text);

private:
    void assign(const C* text, int count);
    void swap(ZStringImpl& other) noexcept;

    C* chars;
    int capacity;
    int length;
};

using ZString = ZStringImpl<char>;
using ZWString = ZStringImpl<char16_t>;

template <typename C>
ZStringImpl<C> operator+(const ZStringImpl<C>& left, const ZStringImpl<C>& right) {
    ZStringImpl<C> result;
    result.ensureCapacity(left.getLength() + right.getLength() + 1);
    result.append(left);
    result.append(right);
    return result;
}
template <typename C>
ZStringImpl<C> operator+(const ZStringImpl<C>& left, const C* right) {
    return left + ZStringImpl<C>(right);
}
template <typename C>
ZStringImpl<C> operator+(const C* left, const ZStringImpl<C>& right) {
    return ZStringImpl<C>(left) + right;
}
// The decimal form of a number.
ZString longToString(long value);

inline bool startsWith(const char* text, const char* prefix) {
    return strncmp(text, prefix, strlen(prefix)) == 0;
}

extern template class ZStringImpl<char>;
extern template class ZStringImpl<char16_t>;
