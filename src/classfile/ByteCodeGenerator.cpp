#include "classfile/ByteCodeGenerator.h"

#include "classfile/CodeAttribute.h"
#include "classfile/OpCodes.h"

void ByteCodeGenerator::pushShortValue(int value) {
    push(value >> 8 & 0xff);
    push(value & 0xff);
}

void ByteCodeGenerator::load(int base, int general, int slot) {
    if (slot < 4) {
        push(base + slot);
    } else if (slot > 255) {
        push(OPC_WIDE);
        push(general);
        pushShortValue(slot);
    } else {
        push(general);
        push(slot);
    }
}

void ByteCodeGenerator::aload(int slot) {
    load(OPC_ALOAD_0, OPC_ALOAD, slot);
}

void ByteCodeGenerator::iload(int slot) {
    if (slot == 0 || slot == 1) {
        push(OPC_ILOAD_0 + slot);
        return;
    }
    push(OPC_ILOAD);
    push(slot & 0xff);
}

void ByteCodeGenerator::openJump(int opcode) {
    openJumps.push(code.getSize());
    push(opcode);
    pushShortValue(0);
}

void ByteCodeGenerator::closeJump() {
    const int start = openJumps.pop();
    const int offset = code.getSize() - start;
    code.set(start + 1, static_cast<unsigned char>(offset / 256));
    code.set(start + 2, static_cast<unsigned char>(offset & 0xff));
    jumpTargets.push(code.getSize());
}

void ByteCodeGenerator::copyTo(unsigned char* to, int position) const {
    Logger::assertTrue(openJumps.isEmpty(), VDK_HERE);
    Logger::assertNotNULL(to, VDK_HERE);
    Logger::assertTrue(position >= 0, VDK_HERE);
    memcpy(to + position, code.data(), static_cast<size_t>(code.getSize()));
}

void ByteCodeGenerator::installInto(CodeAttribute* attribute) const {
    Logger::assertTrue(openJumps.isEmpty(), VDK_HERE);
    Logger::assertNotNULL(attribute, VDK_HERE);
    attribute->setCode(code.data(), code.getSize());
}
