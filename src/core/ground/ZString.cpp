#include "core/ground/ZString.h"

#include "core/ground/Logger.h"

void zstringFail(int line) {
    // Not a ZString: the failure may be that of a string's own buffer.
    Logger::error("assertion failed: ", "ZString", line);
}

template <typename C>
C ZStringImpl<C>::EMPTY_STR[1] = {0};

template <typename C>
C* ZStringImpl<C>::new_c_str(int n) {
    return n <= 1 ? EMPTY_STR : new C[static_cast<size_t>(n)]();
}

template <typename C>
void ZStringImpl<C>::delete_c_str(C* buffer) {
    if (buffer != nullptr && buffer != EMPTY_STR) {
        delete[] buffer;
    }
}

template <typename C>
int ZStringImpl<C>::lengthOf(const C* text) {
    size_t count = 0;
    while (text[count] != 0) {
        count++;
    }
    if (count > 0x7ffffffe) {
        zstringFail(362);
    }
    return static_cast<int>(count);
}

template <typename C>
void ZStringImpl<C>::swap(ZStringImpl& other) noexcept {
    C* const otherChars = other.chars;
    const int otherCapacity = other.capacity;
    const int otherLength = other.length;
    other.chars = chars;
    other.capacity = capacity;
    other.length = length;
    chars = otherChars;
    capacity = otherCapacity;
    length = otherLength;
}

template <typename C>
void ZStringImpl<C>::assign(const C* text, int count) {
    if (count < 0 || count == 0x7fffffff) {
        zstringFail(373);
    }
    C* fresh = new_c_str(count + 1);
    if (count > 0) {
        memcpy(fresh, text, sizeof(C) * static_cast<size_t>(count));
    }
    delete_c_str(chars);
    chars = fresh;
    capacity = count + 1;
    length = count;
}

template <typename C>
void ZStringImpl<C>::ensureCapacity(int n) {
    if (n < 16) {
        n = 16;
    }
    if (n <= capacity) {
        return;
    }
    int doubled = static_cast<int>(static_cast<unsigned>(capacity) * 2);
    if (doubled < 0) {
        doubled = 0x7fffffff;
    }
    const int grown = n > doubled ? n : doubled;
    C* fresh = new_c_str(grown);
    memcpy(fresh, chars, sizeof(C) * static_cast<size_t>(length));
    delete_c_str(chars);
    chars = fresh;
    capacity = grown;
}

template <typename C>
void ZStringImpl<C>::append(const C* text, int count) {
    if (count < 0 || count > 0x7ffffffe - length) {
        zstringFail(366);
    }
    if (count == 0) {
        return;
    }
    if (text >= chars && text < chars + capacity) {
        // Part of this very string: growing would pull it from under our feet.
        const ZStringImpl copy(text, count);
        append(copy.chars, copy.length);
        return;
    }
    ensureCapacity(length + count + 1);
    memcpy(chars + length, text, sizeof(C) * static_cast<size_t>(count));
    length += count;
    chars[length] = 0;
}

template <typename C>
void ZStringImpl<C>::appendLong(long value) {
    unsigned long rest = static_cast<unsigned long>(value);
    if (value < 0) {
        appendChar('-');
        rest = 0 - rest;
    }
    const int first = length;
    do {
        appendChar(static_cast<C>('0' + rest % 10));
        rest /= 10;
    } while (rest != 0);
    for (int low = first, high = length - 1; low < high; low++, high--) {
        const C digit = chars[low];
        chars[low] = chars[high];
        chars[high] = digit;
    }
}

template <typename C>
ZStringImpl<C> ZStringImpl<C>::substring(int from, int to) const {
    if (from < 0) {
        zstringFail(274);
    }
    if (from > to) {
        zstringFail(275);
    }
    if (to > length) {
        zstringFail(278);
    }
    return ZStringImpl(chars + from, to - from);
}

template <typename C>
void ZStringImpl<C>::split(const C* delimiters, ZVectorSafe<ZStringImpl>& out) const {
    if (delimiters == nullptr) {
        zstringFail(301);
    }
    const ZStringImpl separators(delimiters);
    int start = 0;
    for (int i = 0; i <= length; i++) {
        if (i == length || separators.indexOf(chars[i]) >= 0) {
            if (i > start) {
                out.push(substring(start, i));
            }
            start = i + 1;
        }
    }
}

template <typename C>
int ZStringImpl<C>::indexOf(C unit, int from) const {
    for (int i = from < 0 ? 0 : from; i < length; i++) {
        if (chars[i] == unit) {
            return i;
        }
    }
    return -1;
}

template <typename C>
int ZStringImpl<C>::indexOf(const C* text, int from) const {
    if (text == nullptr) {
        zstringFail(320);
    }
    const int count = lengthOf(text);
    for (int i = from < 0 ? 0 : from; i <= length - count; i++) {
        if (memcmp(chars + i, text, sizeof(C) * static_cast<size_t>(count)) == 0) {
            return i;
        }
    }
    return -1;
}

template <typename C>
int ZStringImpl<C>::lastIndexOf(C unit) const {
    int i = length - 1;
    while (i >= 0 && chars[i] != unit) {
        i--;
    }
    return i;
}

template <typename C>
void ZStringImpl<C>::replaceAll(C unit, C by) {
    for (int i = 0; i < length; i++) {
        if (chars[i] == unit) {
            chars[i] = by;
        }
    }
}

template class ZStringImpl<char>;
template class ZStringImpl<char16_t>;

ZString longToString(long value) {
    ZString text;
    text.appendLong(value);
    return text;
}
