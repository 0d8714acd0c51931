#include "classfile/FieldInfo.h"

#include "core/ground/Logger.h"

// field_info, JVMS 4.5: u2 access_flags, u2 name_index, u2 descriptor_index, attributes.
FieldInfo::FieldInfo(DataInput& input, ConstantPool& pool)
    : accessFlags(input.readUnsignedShort()), nameIndex(pool.checkRead(input.readUnsignedShort())),
      descriptorIndex(pool.checkRead(input.readUnsignedShort())), attributes(pool.getArena()) {
    Logger::assertTrue(nameIndex >= 1 && descriptorIndex >= 1, VDK_HERE);
    AttributeInfoReader::createAll(input, pool, attributes);
}

FieldInfo::FieldInfo(int flags, int name, int descriptor, ConstantPool& pool)
    : accessFlags(flags), nameIndex(name), descriptorIndex(descriptor),
      attributes(pool.getArena()) {
    Logger::assertTrue(flags >= 0 && name >= 1 && descriptor >= 1, VDK_HERE);
}

void FieldInfo::writeTo(DataOutput& output) const {
    output.writeUnsignedShort(accessFlags);
    output.writeUnsignedShort(nameIndex);
    output.writeUnsignedShort(descriptorIndex);
    AttributeInfoReader::writeAll(attributes, output);
}
