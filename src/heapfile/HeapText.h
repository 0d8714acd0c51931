#pragma once

#include <cstdint>
#include <string>

// Text that comes out of heap files, made fit for terminals and JSON.

// At most maxBytes of modified UTF-8 as valid UTF-8: surrogate pairs become one character, control
// characters and broken sequences become '?'.
std::string cleanUtf8(const uint8_t* bytes, uint64_t length, uint64_t maxBytes = 65535);

// Appends a character of UTF-16, or a whole pair, as UTF-8. Control characters become '?'.
void appendUtf8(std::string& text, uint32_t codePoint);

// "java/util/Map$Entry" as "java.util.Map$Entry", "[Ljava/lang/Object;" as "java.lang.Object[]",
// "[[I" as "int[][]"; a name in source form stays as it is.
std::string sourceClassName(const std::string& name);

// Source name of a primitive type by its letter, "?" for another.
const char* primitiveTypeName(char letter);

// Bytes of a primitive by its letter, 0 for another.
uint32_t primitiveTypeSize(char letter);

// Element type of an array class by its source name: 'L' for references, else the primitive's
// letter; 0 if it isn't an array class.
char arrayElementType(const std::string& className);
