// The primitive types of Java, in one table: the letter in a descriptor, the name in source code,
// and the bytes that a value takes in an array.
#pragma once

struct PrimitiveType {
    char letter;
    const char* name;
    unsigned size;
};

constexpr PrimitiveType PRIMITIVE_TYPES[] = {
    {'B', "byte", 1}, {'C', "char", 2}, {'D', "double", 8}, {'F', "float", 4},
    {'I', "int", 4},  {'J', "long", 8}, {'S', "short", 2},  {'Z', "boolean", 1},
};

// Null if no primitive type has the letter; void ('V') is none.
inline const PrimitiveType* findPrimitiveType(char letter) {
    for (const PrimitiveType& type : PRIMITIVE_TYPES) {
        if (type.letter == letter) {
            return &type;
        }
    }
    return nullptr;
}
