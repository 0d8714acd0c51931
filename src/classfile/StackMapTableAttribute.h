#pragma once

#include "classfile/AttributeInfo.h"
#include "classfile/StackMapFrame.h"

// StackMapTableAttribute: the frames of a method as bytes: u2 count, then each frame as the
// difference to the one in front. Decoding costs memory for every frame, so a move of the code that
// leaves the types alone is done on the bytes.
class StackMapTableAttribute final : public RawAttribute {
public:
    static constexpr const char* NAME = "StackMapTable";
    StackMapTableAttribute(int name, int count, const unsigned char* body)
        : RawAttribute(ATTRIBUTE_STACK_MAP_TABLE, name, count, body) {}
    // Decodes all frames behind the initial one, which must be in the list already.
    void parse(ArenaVector<StackMapFrame*>& frames, int thisClass) const;
    // Moves every frame, and every position of a `new` that a frame names.
    void shift(const CodeOffsets& offsets, ClassArena& arena);
    int getCount() const { return openBody().readUnsignedShort(); }
};
