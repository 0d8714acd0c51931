#include "classfile/LocalVariableTableAttribute.h"

#include "classfile/DescriptorTypes.h"

namespace {
const unsigned char EMPTY_TABLE[2] = {0, 0};
} // namespace

void LocalVariable::setStartPc(int pc) {
    Logger::assertTrue(pc >= 0, VDK_HERE);
    DataOutput::storeShort(at, pc);
}

void LocalVariable::setLength(int length) {
    Logger::assertTrue(length >= 0, VDK_HERE);
    DataOutput::storeShort(at + 2, length);
}

LocalVariablesAttribute::LocalVariablesAttribute(AttributeKind kind, ClassArena& owner, int name,
                                                 int count, const unsigned char* body)
    : RawAttribute(kind, name, count, body), arena(owner), entries(openBody().readUnsignedShort()),
      copy(nullptr) {
    Logger::assertTrue(entries * 10 + 2 == count, VDK_HERE);
}

LocalVariableList LocalVariablesAttribute::getLocalVariables() {
    if (copy == nullptr) {
        copy = arena.copyBytes(getBytes(), getAttributeLength());
        replaceBody(copy, getAttributeLength());
    }
    return LocalVariableList(copy + 2, entries);
}

LocalVariableTableAttribute::LocalVariableTableAttribute(ClassArena& owner, int name)
    : LocalVariableTableAttribute(owner, name, 2, EMPTY_TABLE) {}

void patchLocalVariables1(const LocalVariableList& variables, int delta) {
    for (int i = 0; i < variables.getSize(); i++) {
        LocalVariable variable = variables[i];
        if (variable.getStartPc() == 0) {
            variable.setLength(variable.getLength() + delta);
        } else {
            variable.setStartPc(variable.getStartPc() + delta);
        }
    }
}

void checkLocalVariables(const LocalVariableList& variables, const ConstantPool& pool,
                         int maxLocals) {
    for (int i = 0; i < variables.getSize(); i++) {
        const LocalVariable variable = variables[i];
        pool.checkRead(variable.getNameIndex());
        const int descriptor = pool.checkRead(variable.getDescriptorIndex());
        const int slots = DescriptorTypes::slotsOf(pool.getUtf8(descriptor).charAt(0));
        Logger::assertTrue(variable.getSlot() + slots <= maxLocals, VDK_HERE);
    }
}

void patchLocalVariables2(const LocalVariableList& variables, const CodeOffsets& offsets,
                          bool hasPrefix) {
    for (int i = 0; i < variables.getSize(); i++) {
        LocalVariable variable = variables[i];
        const int start = variable.getStartPc();
        const int newStart = start == 0 && hasPrefix ? 0 : offsets.end(start);
        const int newEnd = offsets.end(start + variable.getLength());
        variable.setStartPc(newStart);
        variable.setLength(newEnd - newStart);
    }
}
