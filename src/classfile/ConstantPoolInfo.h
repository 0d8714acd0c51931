#pragma once

#include "classfile/ClassArena.h"
#include "classfile/DataInput.h"
#include "classfile/DataOutput.h"
#include "classfile/Utf8View.h"

// The entries of a constant pool, one object each. They live in the arena of their ClassFile and
// hold no pointer to the pool; operations that follow an index take it as an argument. Indices are
// checked for being at least 1 when an entry is read and for their tag when they are followed.

class ConstantPool;

enum ConstantTag : int {
    CONSTANT_UTF8 = 1,
    CONSTANT_INTEGER = 3,
    CONSTANT_FLOAT = 4,
    CONSTANT_LONG = 5,
    CONSTANT_DOUBLE = 6,
    CONSTANT_CLASS = 7,
    CONSTANT_STRING = 8,
    CONSTANT_FIELD_REF = 9,
    CONSTANT_METHOD_REF = 10,
    CONSTANT_INTERFACE_METHOD_REF = 11,
    CONSTANT_NAME_AND_TYPE = 12,
    CONSTANT_METHOD_HANDLE = 15,
    CONSTANT_METHOD_TYPE = 16,
    CONSTANT_DYNAMIC = 17,
    CONSTANT_INVOKE_DYNAMIC = 18,
    CONSTANT_MODULE = 19,
    CONSTANT_PACKAGE = 20
};

class ConstantPoolInfo {
public:
    int getTag() const { return tag; }
    // Long and double fill two indices.
    bool isWide() const { return tag == CONSTANT_LONG || tag == CONSTANT_DOUBLE; }
    // The tag byte and the body, as in a class file.
    virtual void writeTo(DataOutput& output) const = 0;

protected:
    explicit ConstantPoolInfo(int t) : tag(static_cast<unsigned char>(t)) {}
    ~ConstantPoolInfo() = default;

private:
    const unsigned char tag;
};

// Text as bytes. Read entries point into the class's bytes, others into the arena.
class ConstantUtf8Info final : public ConstantPoolInfo {
public:
    explicit ConstantUtf8Info(DataInput& input);
    // Copies the text to the arena.
    ConstantUtf8Info(ClassArena& arena, const Utf8View& text);
    Utf8View getValue() const { return Utf8View(bytes, length); }
    // Compares the text up to the first zero byte, which valid modified UTF-8 never holds.
    bool equals(const Utf8View& text) const;
    // Replaces the text by a copy; the pool forgets its index and its original bytes.
    void setValue(ConstantPool& pool, const Utf8View& text);
    void writeTo(DataOutput& output) const override;

    // What an attribute of this name is (AttributeKind), 0 while nobody asked. A cache of
    // AttributeInfoReader.
    mutable unsigned char attributeKind = 0;

private:
    unsigned short length;
    const char* bytes;
};

class ConstantIntInfo final : public ConstantPoolInfo {
public:
    explicit ConstantIntInfo(DataInput& input)
        : ConstantPoolInfo(CONSTANT_INTEGER), value(input.readInt()) {}
    explicit ConstantIntInfo(int v) : ConstantPoolInfo(CONSTANT_INTEGER), value(v) {}
    int getValue() const { return value; }
    bool equals(int other) const { return value == other; }
    void writeTo(DataOutput& output) const override;

private:
    int value;
};

// Float, long and double: bits that nobody interprets. words is 1 or 2.
template <int TAG, int WORDS>
class ConstantBitsInfo final : public ConstantPoolInfo {
public:
    explicit ConstantBitsInfo(DataInput& input)
        : ConstantPoolInfo(TAG), bits(input.take(WORDS * 4)) {}
    void writeTo(DataOutput& output) const override {
        output.writeUnsignedByte(TAG);
        output.write(bits, WORDS * 4);
    }

private:
    const unsigned char* bits;
};
using ConstantFloatInfo = ConstantBitsInfo<CONSTANT_FLOAT, 1>;
using ConstantLongInfo = ConstantBitsInfo<CONSTANT_LONG, 2>;
using ConstantDoubleInfo = ConstantBitsInfo<CONSTANT_DOUBLE, 2>;

// Base of the entries that are one index.
class ConstantOneIndexInfo : public ConstantPoolInfo {
public:
    int getIndex() const { return index; }
    bool equals(int other) const;
    void writeTo(DataOutput& output) const override;

protected:
    ConstantOneIndexInfo(int t, int i, bool checked);
    ~ConstantOneIndexInfo() = default;

private:
    unsigned short index;
};

// A class, interface or array: name in internal form, or an array descriptor.
class ConstantClassInfo final : public ConstantOneIndexInfo {
public:
    explicit ConstantClassInfo(int nameIndex)
        : ConstantOneIndexInfo(CONSTANT_CLASS, nameIndex, true) {}
    int getNameIndex() const { return getIndex(); }
    Utf8View getName(const ConstantPool& pool) const;
};
class ConstantStringInfo final : public ConstantOneIndexInfo {
public:
    explicit ConstantStringInfo(int stringIndex)
        : ConstantOneIndexInfo(CONSTANT_STRING, stringIndex, true) {}
};
class ConstantMethodTypeInfo final : public ConstantOneIndexInfo {
public:
    explicit ConstantMethodTypeInfo(int descriptorIndex)
        : ConstantOneIndexInfo(CONSTANT_METHOD_TYPE, descriptorIndex, false) {}
};
// Module (19) and package (20) names, found in module-info classes alone.
class ConstantModuleInfo final : public ConstantOneIndexInfo {
public:
    ConstantModuleInfo(int t, int nameIndex) : ConstantOneIndexInfo(t, nameIndex, false) {}
};

// Base of the entries that are two indices.
class ConstantTwoIndexInfo : public ConstantPoolInfo {
public:
    int getFirstIndex() const { return first; }
    int getSecondIndex() const { return second; }
    bool equals(int firstIndex, int secondIndex) const;
    void writeTo(DataOutput& output) const override;

protected:
    ConstantTwoIndexInfo(int t, int firstIndex, int secondIndex, bool checked);
    ~ConstantTwoIndexInfo() = default;

private:
    unsigned short first;
    unsigned short second;
};

// Reference to a member: class index, name-and-type index.
class ConstantMemberRefInfo : public ConstantTwoIndexInfo {
public:
    int getClassIndex() const { return getFirstIndex(); }
    int getNameAndTypeIndex() const { return getSecondIndex(); }
    Utf8View getMethodName(const ConstantPool& pool) const;
    // Name of the class that the reference names, in internal form.
    Utf8View getClassSignature(const ConstantPool& pool) const;
    // The descriptor.
    Utf8View getMethodSignature(const ConstantPool& pool) const;

protected:
    ConstantMemberRefInfo(int t, int classIndex, int nameAndTypeIndex)
        : ConstantTwoIndexInfo(t, classIndex, nameAndTypeIndex, true) {}
    ~ConstantMemberRefInfo() = default;
};
class ConstantFieldRefInfo final : public ConstantMemberRefInfo {
public:
    ConstantFieldRefInfo(int classIndex, int nameAndTypeIndex)
        : ConstantMemberRefInfo(CONSTANT_FIELD_REF, classIndex, nameAndTypeIndex) {}
};
class ConstantMethodRefInfo final : public ConstantMemberRefInfo {
public:
    ConstantMethodRefInfo(int classIndex, int nameAndTypeIndex)
        : ConstantMemberRefInfo(CONSTANT_METHOD_REF, classIndex, nameAndTypeIndex) {}
};
class ConstantInterfaceMethodRefInfo final : public ConstantMemberRefInfo {
public:
    ConstantInterfaceMethodRefInfo(int classIndex, int nameAndTypeIndex)
        : ConstantMemberRefInfo(CONSTANT_INTERFACE_METHOD_REF, classIndex, nameAndTypeIndex) {}
};
class ConstantNameAndTypeInfo final : public ConstantTwoIndexInfo {
public:
    ConstantNameAndTypeInfo(int nameIndex, int descriptorIndex)
        : ConstantTwoIndexInfo(CONSTANT_NAME_AND_TYPE, nameIndex, descriptorIndex, true) {}
    Utf8View getName(const ConstantPool& pool) const;
    Utf8View getDescriptor(const ConstantPool& pool) const;
};
// Dynamic constant (17) and call site (18): bootstrap method, name-and-type.
class ConstantInvokeDynamicInfo final : public ConstantTwoIndexInfo {
public:
    ConstantInvokeDynamicInfo(int t, int bootstrapIndex, int nameAndTypeIndex)
        : ConstantTwoIndexInfo(t, bootstrapIndex, nameAndTypeIndex, false) {}
    Utf8View getDescriptor(const ConstantPool& pool) const;
};
class ConstantMethodHandleInfo final : public ConstantPoolInfo {
public:
    explicit ConstantMethodHandleInfo(DataInput& input);
    void writeTo(DataOutput& output) const override;

private:
    unsigned char kind;
    unsigned short index;
};

// Reads one entry with its tag.
class ConstantPoolInfoReader {
public:
    // The new entry, in the arena. Null for an unknown tag, which is logged; nothing behind the tag
    // has been read then.
    static ConstantPoolInfo* create(DataInput& input, ClassArena& arena);
};
