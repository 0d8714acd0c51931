#pragma once

#include "classfile/AttributeInfo.h"
#include "classfile/CodeOffsets.h"

// TypeAnnotationsAttribute: annotations of types, kept as bytes. Inside a Code attribute some of
// their targets name code positions, which move with the code.
class TypeAnnotationsAttribute final : public RawAttribute {
public:
    static constexpr const char* NAME_RUNTIME_VISIBLE = "RuntimeVisibleTypeAnnotations";
    static constexpr const char* NAME_RUNTIME_INVISIBLE = "RuntimeInvisibleTypeAnnotations";
    TypeAnnotationsAttribute(ClassArena& owner, AttributeKind kind, int name, int count,
                             const unsigned char* body)
        : RawAttribute(kind, name, count, body), arena(owner) {}
    // Moves all code positions. False if the body could not be followed: nothing has changed then,
    // and the attribute is no longer true.
    bool shift(const CodeOffsets& offsets);

private:
    ClassArena& arena;
};
