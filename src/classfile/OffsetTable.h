#pragma once

#include "classfile/ArenaVector.h"
#include "core/ground/Logger.h"

// OffsetTable: every branch operand of a method. Offsets are relative to the instruction, hence two
// positions an element. Elements live in the arena, one flat array, in code order.
class OffsetTable {
public:
    explicit OffsetTable(ClassArena& arena) : elements(arena) {}

    // offsetIndex: code position of the operand, 16 bits wide if isShort, else 32.
    void addOffsetToTable(int instructionIndex, int offsetIndex, bool isShort) {
        Logger::assertTrue(instructionIndex >= 0, VDK_HERE);
        Logger::assertTrue(offsetIndex >= 1, VDK_HERE);
        elements.push({instructionIndex, offsetIndex, isShort});
    }
    int getSize() const { return elements.getSize(); }
    int getInstructionIndex(int i) const { return element(i).instructionIndex; }
    int getOffsetIndex(int i) const { return element(i).offsetIndex; }
    bool isShort(int i) const { return element(i).isShort; }

private:
    struct Element {
        int instructionIndex;
        int offsetIndex;
        bool isShort;
    };
    const Element& element(int i) const {
        Logger::assertTrue(i < elements.getSize(), VDK_HERE);
        return elements[i];
    }

    ArenaVector<Element> elements;
};
