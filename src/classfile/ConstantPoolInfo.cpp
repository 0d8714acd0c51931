#include "classfile/ConstantPoolInfo.h"

#include "classfile/ConstantPool.h"
#include "core/ground/Logger.h"

ConstantUtf8Info::ConstantUtf8Info(DataInput& input)
    : ConstantPoolInfo(CONSTANT_UTF8),
      length(static_cast<unsigned short>(input.readUnsignedShort())),
      bytes(reinterpret_cast<const char*>(input.take(length))) {}

ConstantUtf8Info::ConstantUtf8Info(ClassArena& arena, const Utf8View& text)
    : ConstantPoolInfo(CONSTANT_UTF8), length(static_cast<unsigned short>(text.getLength())) {
    Logger::assertTrue(text.getLength() <= 0xffff, VDK_HERE);
    bytes = reinterpret_cast<const char*>(
        arena.copyBytes(reinterpret_cast<const unsigned char*>(text.getBytes()), length));
}

bool ConstantUtf8Info::equals(const Utf8View& text) const {
    const int count = text.getLength();
    return length >= count && memcmp(bytes, text.getBytes(), static_cast<size_t>(count)) == 0 &&
           (length == count || bytes[count] == 0);
}

void ConstantUtf8Info::setValue(ConstantPool& pool, const Utf8View& text) {
    Logger::assertTrue(text.getLength() <= 0xffff, VDK_HERE);
    bytes = reinterpret_cast<const char*>(pool.getArena().copyBytes(
        reinterpret_cast<const unsigned char*>(text.getBytes()), text.getLength()));
    length = static_cast<unsigned short>(text.getLength());
    attributeKind = 0;
    pool.entryChanged();
}

void ConstantUtf8Info::writeTo(DataOutput& output) const {
    unsigned char* const at = output.reserve(3 + length);
    at[0] = CONSTANT_UTF8;
    DataOutput::storeShort(at + 1, length);
    memcpy(at + 3, bytes, length);
}

void ConstantIntInfo::writeTo(DataOutput& output) const {
    output.writeUnsignedByte(CONSTANT_INTEGER);
    output.writeInt(value);
}

ConstantOneIndexInfo::ConstantOneIndexInfo(int t, int i, bool checked)
    : ConstantPoolInfo(t), index(static_cast<unsigned short>(i)) {
    Logger::assertTrue(!checked || i >= 1, VDK_HERE);
}

bool ConstantOneIndexInfo::equals(int other) const {
    Logger::assertTrue(other >= 1, VDK_HERE);
    return index == other;
}

void ConstantOneIndexInfo::writeTo(DataOutput& output) const {
    output.writeUnsignedByte(getTag());
    output.writeUnsignedShort(index);
}

Utf8View ConstantClassInfo::getName(const ConstantPool& pool) const {
    return pool.getUtf8(getNameIndex());
}

ConstantTwoIndexInfo::ConstantTwoIndexInfo(int t, int firstIndex, int secondIndex, bool checked)
    : ConstantPoolInfo(t), first(static_cast<unsigned short>(firstIndex)),
      second(static_cast<unsigned short>(secondIndex)) {
    Logger::assertTrue(!checked || (firstIndex >= 1 && secondIndex >= 1), VDK_HERE);
}

bool ConstantTwoIndexInfo::equals(int firstIndex, int secondIndex) const {
    Logger::assertTrue(firstIndex >= 1 && secondIndex >= 1, VDK_HERE);
    return first == firstIndex && second == secondIndex;
}

void ConstantTwoIndexInfo::writeTo(DataOutput& output) const {
    unsigned char* const at = output.reserve(5);
    at[0] = static_cast<unsigned char>(getTag());
    DataOutput::storeShort(at + 1, first);
    DataOutput::storeShort(at + 3, second);
}

Utf8View ConstantMemberRefInfo::getMethodName(const ConstantPool& pool) const {
    return pool.getNameAndType(getNameAndTypeIndex()).getName(pool);
}

Utf8View ConstantMemberRefInfo::getClassSignature(const ConstantPool& pool) const {
    return pool.getClassName(getClassIndex());
}

Utf8View ConstantMemberRefInfo::getMethodSignature(const ConstantPool& pool) const {
    return pool.getNameAndType(getNameAndTypeIndex()).getDescriptor(pool);
}

Utf8View ConstantNameAndTypeInfo::getName(const ConstantPool& pool) const {
    return pool.getUtf8(getFirstIndex());
}

Utf8View ConstantNameAndTypeInfo::getDescriptor(const ConstantPool& pool) const {
    return pool.getUtf8(getSecondIndex());
}

Utf8View ConstantInvokeDynamicInfo::getDescriptor(const ConstantPool& pool) const {
    return pool.getNameAndType(getSecondIndex()).getDescriptor(pool);
}

ConstantMethodHandleInfo::ConstantMethodHandleInfo(DataInput& input)
    : ConstantPoolInfo(CONSTANT_METHOD_HANDLE),
      kind(static_cast<unsigned char>(input.readUnsignedByte())),
      index(static_cast<unsigned short>(input.readUnsignedShort())) {
    Logger::assertTrue(kind >= 1 && kind <= 9, VDK_HERE);
}

void ConstantMethodHandleInfo::writeTo(DataOutput& output) const {
    output.writeUnsignedByte(CONSTANT_METHOD_HANDLE);
    output.writeUnsignedByte(kind);
    output.writeUnsignedShort(index);
}

ConstantPoolInfo* ConstantPoolInfoReader::create(DataInput& input, ClassArena& arena) {
    const int tag = input.readUnsignedByte();
    int first;
    switch (tag) {
    case CONSTANT_UTF8:
        return arena.make<ConstantUtf8Info>(input);
    case CONSTANT_INTEGER:
        return arena.make<ConstantIntInfo>(input);
    case CONSTANT_FLOAT:
        return arena.make<ConstantFloatInfo>(input);
    case CONSTANT_LONG:
        return arena.make<ConstantLongInfo>(input);
    case CONSTANT_DOUBLE:
        return arena.make<ConstantDoubleInfo>(input);
    case CONSTANT_CLASS:
        return arena.make<ConstantClassInfo>(input.readUnsignedShort());
    case CONSTANT_STRING:
        return arena.make<ConstantStringInfo>(input.readUnsignedShort());
    case CONSTANT_FIELD_REF:
        first = input.readUnsignedShort();
        return arena.make<ConstantFieldRefInfo>(first, input.readUnsignedShort());
    case CONSTANT_METHOD_REF:
        first = input.readUnsignedShort();
        return arena.make<ConstantMethodRefInfo>(first, input.readUnsignedShort());
    case CONSTANT_INTERFACE_METHOD_REF:
        first = input.readUnsignedShort();
        return arena.make<ConstantInterfaceMethodRefInfo>(first, input.readUnsignedShort());
    case CONSTANT_NAME_AND_TYPE:
        first = input.readUnsignedShort();
        return arena.make<ConstantNameAndTypeInfo>(first, input.readUnsignedShort());
    case CONSTANT_METHOD_HANDLE:
        return arena.make<ConstantMethodHandleInfo>(input);
    case CONSTANT_METHOD_TYPE:
        return arena.make<ConstantMethodTypeInfo>(input.readUnsignedShort());
    case CONSTANT_DYNAMIC:
    case CONSTANT_INVOKE_DYNAMIC:
        first = input.readUnsignedShort();
        return arena.make<ConstantInvokeDynamicInfo>(tag, first, input.readUnsignedShort());
    case CONSTANT_MODULE:
    case CONSTANT_PACKAGE:
        return arena.make<ConstantModuleInfo>(tag, input.readUnsignedShort());
    default:
        Logger::message(ZString("Unknown Constant Pool Info tag: ") + longToString(tag), nullptr);
        return nullptr;
    }
}
