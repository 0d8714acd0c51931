#pragma once

#include "core/ground/Logger.h"

// CodeOffsets: where the positions of a method's old code lie in its new code. Positions come from
// the class file, so each is checked.
class CodeOffsets {
public:
    // map has an entry for each of the oldLength positions and one for the end of the code.
    CodeOffsets(const int* map, int oldLength) : newPositions(map), count(oldLength) {
        Logger::assertNotNULL(map, VDK_HERE);
    }
    // Where what leads to pc leads now: to the instruction, or to what was put in front of it.
    int at(int pc) const {
        Logger::assertTrue(pc >= 0 && pc < count, VDK_HERE);
        return newPositions[pc];
    }
    // Position of the instruction that was at pc; it is not the last byte of a longer one.
    int instruction(int pc) const {
        Logger::assertTrue(pc >= 0 && pc < count, VDK_HERE);
        return newPositions[pc + 1] - 1;
    }
    // Whether pc is a position of the old code or its end.
    bool covers(int pc) const { return pc >= 0 && pc <= count; }
    // End of a range; the old end of the code is one.
    int end(int pc) const {
        Logger::assertTrue(pc >= 0 && pc <= count, VDK_HERE);
        return newPositions[pc];
    }

private:
    const int* newPositions;
    int count;
};
