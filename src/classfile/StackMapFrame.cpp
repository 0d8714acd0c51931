#include "classfile/StackMapFrame.h"

#include "classfile/ClassFile.h"

VerificationType::VerificationType(int t, int v)
    : tag(t), value(t >= VERIFICATION_UNINITIALIZED_THIS ? v : -1) {
    Logger::assertTrue(t < VERIFICATION_UNINITIALIZED_THIS || v >= 0, VDK_HERE);
}

VerificationType::VerificationType(DataInput& input, int thisClass)
    : tag(input.readUnsignedByte()), value(-1) {
    Logger::assertTrue(tag < 9, VDK_HERE);
    if (tag >= VERIFICATION_OBJECT) {
        value = input.readUnsignedShort();
    } else if (tag == VERIFICATION_UNINITIALIZED_THIS) {
        value = thisClass;
    }
}

VerificationType::VerificationType(const Utf8View& descriptor, ClassFile* classFile) : value(-1) {
    switch (descriptor.charAt(0)) {
    case 'B':
    case 'C':
    case 'I':
    case 'S':
    case 'Z':
        tag = VERIFICATION_INT;
        return;
    case 'D':
        tag = VERIFICATION_DOUBLE;
        return;
    case 'F':
        tag = VERIFICATION_FLOAT;
        return;
    case 'J':
        tag = VERIFICATION_LONG;
        return;
    case 'V':
        tag = VERIFICATION_TOP;
        return;
    case 'L':
    case '[': {
        const bool array = descriptor.charAt(0) == '[';
        const Utf8View name =
            array ? descriptor : Utf8View(descriptor.getBytes() + 1, descriptor.getLength() - 2);
        Logger::assertTrue(name.getLength() >= 1, VDK_HERE);
        tag = VERIFICATION_OBJECT;
        value = classFile->findOrCreateConstantClass(classFile->findOrCreateUtf8(name));
        return;
    }
    default:
        Logger::error(ZString("unexpected java type: ") + descriptor.toString(), VDK_HERE);
    }
}

unsigned char* VerificationType::writeTo(unsigned char* at) const {
    *at++ = static_cast<unsigned char>(tag);
    if (tag >= VERIFICATION_OBJECT) {
        DataOutput::storeShort(at, value);
        at += 2;
    }
    return at;
}

bool VerificationType::isSameType(const VerificationType& a, const VerificationType& b) {
    return a.tag == b.tag && (a.tag < VERIFICATION_OBJECT || a.value == b.value);
}

int VerificationType::compare(const ArenaVector<VerificationType>& a,
                              const ArenaVector<VerificationType>& b) {
    const int difference = a.getSize() - b.getSize();
    const int common = a.getSize() < b.getSize() ? a.getSize() : b.getSize();
    if (difference > 4 || difference < -4 || common == 0) {
        return difference;
    }
    for (int i = 0; i < common; i++) {
        if (!isSameType(a.data()[i], b.data()[i])) {
            return 104;
        }
    }
    return difference;
}

StackMapFrame::StackMapFrame(ClassFile* classFile, const MethodInfo* method)
    : offset(-1), locals(classFile->getArena()), stack(classFile->getArena()) {
    if (!method->isStatic()) {
        // Every constructor starts with an uninitialized this, that of the root class included.
        const bool constructor = method->getName() == "<init>";
        locals.push(
            VerificationType(constructor ? VERIFICATION_UNINITIALIZED_THIS : VERIFICATION_OBJECT,
                             classFile->getThisClass()));
    }
    DescriptorTypes types(method->getDescriptor());
    while (types.next()) {
        locals.push(VerificationType(types.getType(), classFile));
    }
}

StackMapFrame::StackMapFrame(const StackMapFrame* base, int newOffset, VerificationType stackItem,
                             int initPc)
    : offset(newOffset), locals(base->locals.getArena()), stack(base->locals.getArena()) {
    copyLocals(base);
    if (initPc != -1 && initPc < newOffset) {
        for (int i = 0; i < locals.getSize(); i++) {
            if (locals[i].getTag() == VERIFICATION_UNINITIALIZED_THIS) {
                locals[i] = VerificationType(VERIFICATION_OBJECT, locals[i].getValue());
            }
        }
    }
    if (stackItem.getTag() != VERIFICATION_TOP) {
        stack.push(stackItem);
    }
}

void StackMapFrame::copyLocals(const StackMapFrame* from) {
    locals.reserve(from->locals.getSize());
    locals.append(from->locals.data(), from->locals.getSize());
}

void StackMapFrame::readTypes(ArenaVector<VerificationType>& into, int count, DataInput& input,
                              int thisClass) {
    // Each type takes at least a byte.
    Logger::assertTrue(count <= input.getRemaining(), VDK_HERE);
    into.reserve(into.getSize() + count);
    for (int i = 0; i < count; i++) {
        into.push(VerificationType(input, thisClass));
    }
}

// stack_map_frame, JVMS 4.7.4. u1 frame_type:
//   0-63 same, 64-127 same locals and one stack item, 247 the same with u2 delta,
//   248-250 chop, 251 same with u2 delta, 252-254 append, 255 full.
StackMapFrame::StackMapFrame(const StackMapFrame* previous, DataInput& input, int thisClass)
    : offset(0), locals(previous->locals.getArena()), stack(previous->locals.getArena()) {
    const int type = input.readUnsignedByte();
    Logger::assertTrue(type < 128 || type > 246, VDK_HERE);
    const int delta = type < 64 ? type : type < 128 ? type - 64 : input.readUnsignedShort();
    offset = previous->offset + 1 + delta;
    if (type == 255) {
        readTypes(locals, input.readUnsignedShort(), input, thisClass);
        readTypes(stack, input.readUnsignedShort(), input, thisClass);
        return;
    }
    copyLocals(previous);
    if (type >= 252) {
        readTypes(locals, type - 251, input, thisClass);
    } else if (type >= 248) {
        for (int i = type; i < 251; i++) {
            locals.pop();
        }
    } else if (type == 247 || type >= 64) {
        readTypes(stack, 1, input, thisClass);
    }
}

namespace {
unsigned char* writeTypes(const ArenaVector<VerificationType>& types, int from, unsigned char* at) {
    for (int i = from; i < types.getSize(); i++) {
        at = types[i].writeTo(at);
    }
    return at;
}

unsigned char* writeCounted(const ArenaVector<VerificationType>& types, unsigned char* at) {
    DataOutput::storeShort(at, types.getSize());
    return writeTypes(types, 0, at + 2);
}
} // namespace

unsigned char* StackMapFrame::writeTo(const StackMapFrame* previous, unsigned char* at) const {
    const int delta = offset - previous->offset;
    Logger::assertTrue(delta > 0, VDK_HERE);
    const int difference = VerificationType::compare(locals, previous->locals);
    int type = 255;
    if (stack.getSize() == 1 && difference == 0) {
        type = delta + 63 < 128 ? delta + 63 : 247;
    } else if (stack.isEmpty() && difference == 0) {
        type = delta - 1 < 64 ? delta - 1 : 251;
    } else if (stack.isEmpty() && difference >= -3 && difference <= 3) {
        type = 251 + difference;
    }
    *at++ = static_cast<unsigned char>(type);
    if (type >= 128) {
        DataOutput::storeShort(at, delta - 1);
        at += 2;
    }
    if (type == 255) {
        return writeCounted(stack, writeCounted(locals, at));
    }
    if (type >= 252) {
        const int added = type - 251;
        Logger::assertTrue(locals.getSize() >= added, VDK_HERE);
        return writeTypes(locals, locals.getSize() - added, at);
    }
    return writeTypes(stack, 0, at);
}

void StackMapFrame::addLocalVariables(const ArenaVector<VerificationType>& added, int maxLocals) {
    int slots = 0;
    for (int i = 0; i < locals.getSize(); i++) {
        slots += locals[i].getSlots();
    }
    int target = maxLocals;
    for (int i = 0; i < added.getSize(); i++) {
        target -= added[i].getSlots();
    }
    locals.reserve(locals.getSize() + (target > slots ? target - slots : 0) + added.getSize());
    for (; slots < target; slots++) {
        locals.push(VerificationType(VERIFICATION_TOP, -1));
    }
    locals.append(added.data(), added.getSize());
    while (!locals.isEmpty() && locals.peek().getTag() == VERIFICATION_TOP) {
        locals.pop();
    }
}

void shiftUninitializedTypeOffset(ArenaVector<VerificationType>& types,
                                  const CodeOffsets& offsets) {
    for (int i = 0; i < types.getSize(); i++) {
        if (types[i].getTag() == VERIFICATION_UNINITIALIZED) {
            types[i].setValue(offsets.instruction(types[i].getValue()));
        }
    }
}

void shiftUninitializedTypeOffset(ArenaVector<VerificationType>& types, int delta, int fromPc) {
    for (int i = 0; i < types.getSize(); i++) {
        if (types[i].getTag() == VERIFICATION_UNINITIALIZED && types[i].getValue() >= fromPc) {
            types[i].setValue(types[i].getValue() + delta);
        }
    }
}
