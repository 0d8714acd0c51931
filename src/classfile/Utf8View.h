#pragma once

#include "core/ground/ZString.h"

#include <cstring>

// Utf8View: text of a constant pool entry, in place: raw modified UTF-8 that is never decoded, not
// zero-terminated. Valid as long as the entry's ClassFile and the bytes that it was read from.
class Utf8View {
public:
    Utf8View() : bytes(""), length(0) {}
    Utf8View(const char* text, int count) : bytes(text), length(count) {}
    Utf8View(const char* text) : bytes(text), length(static_cast<int>(strlen(text))) {}

    const char* getBytes() const { return bytes; }
    int getLength() const { return length; }
    ZString toString() const { return ZString(bytes, length); }
    operator ZString() const { return toString(); }

    bool operator==(const Utf8View& other) const {
        return length == other.length &&
               memcmp(bytes, other.bytes, static_cast<size_t>(length)) == 0;
    }
    bool operator!=(const Utf8View& other) const { return !(*this == other); }
    bool operator==(const char* text) const { return *this == Utf8View(text); }
    bool operator!=(const char* text) const { return !(*this == text); }
    bool operator==(const ZString& text) const {
        return *this == Utf8View(text.c_str(), text.getLength());
    }
    bool startsWith(const Utf8View& prefix) const {
        return length >= prefix.length &&
               memcmp(bytes, prefix.bytes, static_cast<size_t>(prefix.length)) == 0;
    }
    bool endsWith(const Utf8View& suffix) const {
        return length >= suffix.length && memcmp(bytes + length - suffix.length, suffix.bytes,
                                                 static_cast<size_t>(suffix.length)) == 0;
    }
    bool contains(const Utf8View& part) const { return indexOf(part, 0) >= 0; }
    // Position of the first occurrence at or after `from`, or -1.
    int indexOf(const Utf8View& part, int from) const {
        for (int at = from; at + part.length <= length; at++) {
            if (memcmp(bytes + at, part.bytes, static_cast<size_t>(part.length)) == 0) {
                return at;
            }
        }
        return -1;
    }
    char charAt(int i) const { return i >= 0 && i < length ? bytes[i] : '\0'; }

private:
    const char* bytes;
    int length;
};
