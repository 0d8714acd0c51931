#pragma once

#include "classfile/AttributeInfo.h"

// FieldInfo: one field of a class. No pass edits fields, so a class's fields are written back as
// they were read; the objects exist for those who ask (ClassFile::getFields).
class FieldInfo {
public:
    FieldInfo(DataInput& input, ConstantPool& pool);
    FieldInfo(int accessFlags, int nameIndex, int descriptorIndex, ConstantPool& pool);
    int getAccessFlags() const { return accessFlags; }
    int getNameIndex() const { return nameIndex; }
    int getDescriptorIndex() const { return descriptorIndex; }
    const AttributeList& getAttributes() const { return attributes; }
    // Compares the name alone.
    bool equals(int otherNameIndex) const { return nameIndex == otherNameIndex; }
    void writeTo(DataOutput& output) const;

private:
    int accessFlags;
    int nameIndex;
    int descriptorIndex;
    AttributeList attributes;
};
