#include "classfile/TypeAnnotationsAttribute.h"

namespace {

// Moves the positions of one target_info, JVMS 4.7.20.1; `bytes` is the writable body that `input`
// reads. False for a target that is not known, or a position outside the code: the JVM does not
// check these attributes, and some compilers write such.
bool shiftTarget(DataInput& input, unsigned char* bytes, const CodeOffsets& offsets) {
    const int type = input.readUnsignedByte();
    switch (type) {
    case 0x00: // type parameter of a class or method
    case 0x01:
    case 0x16: // formal parameter
        input.take(1);
        return true;
    case 0x10: // supertype
    case 0x11: // bound of a type parameter
    case 0x12:
    case 0x17: // declared exception
    case 0x42: // exception parameter: an index into the exception table
        input.take(2);
        return true;
    case 0x13: // field, return type, receiver
    case 0x14:
    case 0x15:
        return true;
    case 0x40: // local variable, resource variable: ranges
    case 0x41: {
        const int count = input.readUnsignedShort();
        for (int i = 0; i < count; i++) {
            unsigned char* const at = bytes + input.getPosition();
            const int start = input.readUnsignedShort();
            const int end = start + input.readUnsignedShort();
            input.take(2);
            if (!offsets.covers(end)) {
                return false;
            }
            DataOutput::storeShort(at, offsets.end(start));
            DataOutput::storeShort(at + 2, offsets.end(end) - offsets.end(start));
        }
        return true;
    }
    case 0x43: // instanceof, new, method references
    case 0x44:
    case 0x45:
    case 0x46:
    case 0x47: // casts and type arguments: position and index
    case 0x48:
    case 0x49:
    case 0x4a:
    case 0x4b: {
        unsigned char* const at = bytes + input.getPosition();
        const int pc = input.readUnsignedShort();
        input.take(type >= 0x47 ? 1 : 0);
        if (!offsets.covers(pc)) {
            return false;
        }
        DataOutput::storeShort(at, offsets.end(pc));
        return true;
    }
    default:
        return false;
    }
}

} // namespace

bool TypeAnnotationsAttribute::shift(const CodeOffsets& offsets) {
    unsigned char* const copy = arena.copyBytes(getBytes(), getAttributeLength());
    // Read from the old bytes, write to the copy.
    DataInput input = openBody();
    const int count = input.readUnsignedShort();
    for (int i = 0; i < count; i++) {
        if (!shiftTarget(input, copy, offsets)) {
            return false;
        }
        input.take(2 * input.readUnsignedByte()); // type path
        input.readUnsignedShort();
        skipAnnotationElements(input);
    }
    replaceBody(copy, getAttributeLength());
    return true;
}
