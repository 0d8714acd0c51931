#include "classfile/LineNumberTableAttribute.h"

#include "classfile/OpCodes.h"

LineNumberTableAttribute::LineNumberTableAttribute(ClassArena& owner, int name, int count,
                                                   const unsigned char* body)
    : RawAttribute(ATTRIBUTE_LINE_NUMBER_TABLE, name, count, body), arena(owner),
      entries(openBody().readUnsignedShort()), copy(nullptr) {
    Logger::assertTrue(entries * 4 + 2 == count, VDK_HERE);
}

const unsigned char* LineNumberTableAttribute::entryAt(int i) const {
    Logger::assertTrue(i >= 0 && i < entries, VDK_HERE);
    return getBytes() + 2 + 4 * i;
}

int LineNumberTableAttribute::getStartPc(int i) const {
    return readCodeUnsignedShort(entryAt(i), 0);
}

int LineNumberTableAttribute::getLineNumber(int i) const {
    return readCodeUnsignedShort(entryAt(i), 2);
}

unsigned char* LineNumberTableAttribute::writableEntries() {
    if (copy == nullptr) {
        copy = arena.copyBytes(getBytes(), getAttributeLength());
        replaceBody(copy, getAttributeLength());
    }
    return copy + 2;
}

void LineNumberTableAttribute::shiftLineNumbers(int delta) {
    Logger::assertTrue(delta >= 0, VDK_HERE);
    unsigned char* at = writableEntries();
    for (int i = 0; i < entries; i++, at += 4) {
        DataOutput::storeShort(at, (at[0] << 8 | at[1]) + delta);
    }
}

void LineNumberTableAttribute::shiftLineNumbers(const CodeOffsets& offsets) {
    unsigned char* at = writableEntries();
    for (int i = 0; i < entries; i++, at += 4) {
        DataOutput::storeShort(at, offsets.at(at[0] << 8 | at[1]));
    }
}
