#include "heapfile/HeapText.h"

#include "core/ground/PrimitiveTypes.h"

namespace {

// Length of the sequence at p if it is well-formed, else 0. `code` gets the character.
uint32_t decodeSequence(const uint8_t* p, uint64_t left, uint32_t& code) {
    if (p[0] < 0x80) {
        code = p[0];
        return 1;
    }
    uint32_t length = p[0] >= 0xf0 ? 4 : p[0] >= 0xe0 ? 3 : p[0] >= 0xc0 ? 2 : 0;
    if (length == 0 || p[0] > 0xf4 || left < length) {
        return 0;
    }
    code = p[0] & (0xffu >> (length + 1));
    for (uint32_t i = 1; i < length; i++) {
        if ((p[i] & 0xc0) != 0x80) {
            return 0;
        }
        code = code << 6 | (p[i] & 0x3f);
    }
    return length;
}

} // namespace

void appendUtf8(std::string& text, uint32_t c) {
    if (c < 0x20 || c == 0x7f || (c >= 0x80 && c < 0xa0) || (c >= 0xd800 && c < 0xe000) ||
        c > 0x10ffff) {
        text += '?';
    } else if (c < 0x80) {
        text += static_cast<char>(c);
    } else if (c < 0x800) {
        text += static_cast<char>(0xc0 | c >> 6);
        text += static_cast<char>(0x80 | (c & 0x3f));
    } else if (c < 0x10000) {
        text += static_cast<char>(0xe0 | c >> 12);
        text += static_cast<char>(0x80 | (c >> 6 & 0x3f));
        text += static_cast<char>(0x80 | (c & 0x3f));
    } else {
        text += static_cast<char>(0xf0 | c >> 18);
        text += static_cast<char>(0x80 | (c >> 12 & 0x3f));
        text += static_cast<char>(0x80 | (c >> 6 & 0x3f));
        text += static_cast<char>(0x80 | (c & 0x3f));
    }
}

std::string cleanUtf8(const uint8_t* bytes, uint64_t length, uint64_t maxBytes) {
    if (length > maxBytes) {
        length = maxBytes;
    }
    std::string text;
    text.reserve(length);
    for (uint64_t i = 0; i < length;) {
        uint32_t code = 0;
        uint32_t step = decodeSequence(bytes + i, length - i, code);
        if (step == 0) {
            text += '?';
            i++;
            continue;
        }
        i += step;
        uint32_t low = 0;
        bool high = code >= 0xd800 && code < 0xdc00;
        if (high && i < length && decodeSequence(bytes + i, length - i, low) == 3 &&
            low >= 0xdc00 && low < 0xe000) {
            code = 0x10000 + ((code - 0xd800) << 10) + (low - 0xdc00);
            i += 3;
        }
        appendUtf8(text, code);
    }
    return text;
}

const char* primitiveTypeName(char letter) {
    const PrimitiveType* type = findPrimitiveType(letter);
    return type ? type->name : "?";
}

uint32_t primitiveTypeSize(char letter) {
    const PrimitiveType* type = findPrimitiveType(letter);
    return type ? type->size : 0;
}

std::string sourceClassName(const std::string& name) {
    size_t dimensions = name.find_first_not_of('[');
    if (dimensions == std::string::npos) {
        dimensions = 0;
    }
    std::string element = name.substr(dimensions);
    if (dimensions > 0 && element.size() == 1 && primitiveTypeSize(element[0]) != 0) {
        element = primitiveTypeName(element[0]);
    } else if (dimensions > 0 && element.size() > 2 && element[0] == 'L' && element.back() == ';') {
        element = element.substr(1, element.size() - 2);
    }
    // The part of a hidden class's name from "0x" on stands behind '/', which dumps show as '+'.
    size_t hidden = element.find("+0x");
    if (hidden != std::string::npos) {
        element[hidden] = '/';
    } else {
        hidden = element.find("/0x");
    }
    for (size_t i = 0; i < element.size() && i != hidden; i++) {
        if (element[i] == '/') {
            element[i] = '.';
        }
    }
    for (size_t i = 0; i < dimensions; i++) {
        element += "[]";
    }
    return element;
}

char arrayElementType(const std::string& className) {
    if (className.size() < 3 || className.compare(className.size() - 2, 2, "[]") != 0) {
        return 0;
    }
    const std::string element = className.substr(0, className.size() - 2);
    for (const PrimitiveType& type : PRIMITIVE_TYPES) {
        if (element == type.name) {
            return type.letter;
        }
    }
    return 'L';
}
