#pragma once

#include <stddef.h>
#include <stdint.h>

// CodeShape: how large the machine's frames of a piece of compiled code are, and where the address
// that an interrupted one returns to lies, read from the instructions that make a frame and leave
// it. HotSpot's compilers for x86-64 save the frame pointer in a frame's first word, below the
// return address, whether they use it as such or not, and move the stack pointer once.
struct CodeShape {
    // Of the whole frame with the return address; 0 if the code begins in a way that is not known.
    int words = 0;
    // From the begin of the code: up to `unsaved` the frame pointer is the caller's and nothing is
    // on the stack; up to `partial` it is saved, on the stack alone.
    uint32_t unsaved = 0;
    uint32_t partial = 0;

    // Looks at the first instructions.
    static CodeShape read(const uint8_t* code, size_t bytes);

    // What is of a frame on the stack when the instruction at an offset comes next.
    enum State { NOTHING, FRAME_POINTER, ALL };
    State stateAt(const uint8_t* code, size_t bytes, size_t offset) const;
};
