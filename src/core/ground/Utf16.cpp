#include "core/ground/Utf16.h"

namespace {

constexpr unsigned FIRST_BEYOND = 0x10000;
constexpr unsigned FIRST_HIGH = 0xd800;
constexpr unsigned FIRST_LOW = 0xdc00;
constexpr unsigned HALVES = 0x400;

bool isHalf(unsigned c, unsigned first) {
    return c >= first && c < first + HALVES;
}

void append(ZString* text, unsigned c) {
    char bytes[5] = {};
    int length = 0;
    const auto add = [&](unsigned byte) { bytes[length++] = static_cast<char>(byte); };
    if (c != 0 && c < 0x80) {
        add(c);
    } else if (c < 0x800) {
        add(0xc0 | c >> 6);
        add(0x80 | (c & 0x3f));
    } else {
        if (c < FIRST_BEYOND) {
            add(0xe0 | c >> 12);
        } else {
            add(0xf0 | c >> 18);
            add(0x80 | (c >> 12 & 0x3f));
        }
        add(0x80 | (c >> 6 & 0x3f));
        add(0x80 | (c & 0x3f));
    }
    text->append(bytes);
}

// Bytes behind the first one of a character; 0 also for a byte that begins none.
int bytesBehind(unsigned char first) {
    return first >= 0xf0 && first < 0xf8   ? 3
           : first >= 0xe0 && first < 0xf0 ? 2
           : first >= 0xc0 && first < 0xe0 ? 1
                                           : 0;
}

// The character that begins at `*text`, which moves behind it.
unsigned next(const char** text) {
    const unsigned char first = static_cast<unsigned char>(*(*text)++);
    const int behind = bytesBehind(first);
    unsigned c = behind == 0 ? first : first & (0x3fu >> behind);
    for (int i = 0; i < behind; i++) {
        const unsigned char byte = static_cast<unsigned char>((*text)[i]);
        if ((byte & 0xc0) != 0x80) {
            return first;
        }
        c = c << 6 | (byte & 0x3f);
    }
    *text += behind;
    return c;
}

} // namespace

ZString utf16ToUtf8(const unsigned short* chars, int count) {
    ZString text;
    for (int i = 0; i < count; i++) {
        unsigned c = chars[i];
        if (isHalf(c, FIRST_HIGH) && i + 1 < count && isHalf(chars[i + 1], FIRST_LOW)) {
            c = FIRST_BEYOND + ((c - FIRST_HIGH) << 10) + (chars[++i] - FIRST_LOW);
        }
        append(&text, c);
    }
    return text;
}

bool isBeyondModifiedUtf8(const char* text) {
    for (; *text != 0; text++) {
        if (static_cast<unsigned char>(*text) >= 0xf0) {
            return true;
        }
    }
    return false;
}

void utf8ToUtf16(const char* text, ZVector<unsigned short>* out) {
    while (*text != 0) {
        const unsigned c = next(&text);
        if (c < FIRST_BEYOND) {
            out->push(static_cast<unsigned short>(c));
        } else {
            out->push(static_cast<unsigned short>(FIRST_HIGH + ((c - FIRST_BEYOND) >> 10)));
            out->push(static_cast<unsigned short>(FIRST_LOW + ((c - FIRST_BEYOND) & 0x3ff)));
        }
    }
}
