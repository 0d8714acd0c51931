#include "profiling/cpu/CodeShape.h"

#include <cstring>

namespace {

const int WORD = sizeof(uintptr_t);
// Before a frame is made, code checks its receiver, its class or the room on the stack.
const size_t FIRST_INSTRUCTIONS = 192;
const uint32_t MOST_FRAME_BYTES = 1 << 20;

const uint8_t PUSH_FRAME = 0x55;
const uint8_t POP_FRAME = 0x5d;
const uint8_t RETURN = 0xc3;
const uint8_t RETURN_AND_POP = 0xc2;
const uint8_t MOVE_STACK_TO_FRAME[] = {0x48, 0x8b, 0xec};
const uint8_t SUBTRACT_BYTE[] = {0x48, 0x83, 0xec};
const uint8_t SUBTRACT[] = {0x48, 0x81, 0xec};
const uint8_t ADD_BYTE[] = {0x48, 0x83, 0xc4};
const uint8_t ADD[] = {0x48, 0x81, 0xc4};
const uint8_t SAVE_FRAME_FIRST[] = {0x48, 0x89, 0x2c, 0x24};
const uint8_t SAVE_FRAME_BYTE[] = {0x48, 0x89, 0x6c, 0x24};
const uint8_t SAVE_FRAME[] = {0x48, 0x89, 0xac, 0x24};
const uint8_t JUMP_IF_ABOVE[] = {0x0f, 0x87};
const size_t LONG_JUMP = 6;

// Instructions in a piece of code, none of which is read beyond its end.
class Instructions {
public:
    Instructions(const uint8_t* from, size_t length) : code(from), bytes(length) {}

    template <size_t N>
    bool is(size_t at, const uint8_t (&wanted)[N]) const {
        return at <= bytes && bytes - at >= N && memcmp(code + at, wanted, N) == 0;
    }
    bool is(size_t at, uint8_t wanted) const { return at < bytes && code[at] == wanted; }

    // What the instruction takes from the stack pointer, and its length; 0 if it is another.
    uint32_t subtracted(size_t at, size_t* length) const {
        if (is(at, SUBTRACT_BYTE) && bytes - at > sizeof(SUBTRACT_BYTE)) {
            *length = sizeof(SUBTRACT_BYTE) + 1;
            return code[at + sizeof(SUBTRACT_BYTE)];
        }
        uint32_t number = 0;
        if (is(at, SUBTRACT) && bytes - at >= sizeof(SUBTRACT) + sizeof(number)) {
            *length = sizeof(SUBTRACT) + sizeof(number);
            memcpy(&number, code + at + sizeof(SUBTRACT), sizeof(number));
        }
        return number;
    }

    bool isSavingFrame(size_t at) const {
        return is(at, SAVE_FRAME_FIRST) || is(at, SAVE_FRAME_BYTE) || is(at, SAVE_FRAME);
    }

    // Whether the instruction before gave the frame back up to the frame pointer, and took that.
    bool isLeft(size_t at) const {
        return at > 0 && is(at - 1, POP_FRAME) &&
               ((at >= 5 && is(at - 5, ADD_BYTE)) || (at >= 8 && is(at - 8, ADD)));
    }

private:
    const uint8_t* code;
    size_t bytes;
};

} // namespace

CodeShape CodeShape::read(const uint8_t* code, size_t bytes) {
    const Instructions look(code, bytes);
    CodeShape shape;
    for (size_t at = 0; at < bytes && at < FIRST_INSTRUCTIONS; at++) {
        const bool isPushed = look.is(at, PUSH_FRAME);
        size_t making = isPushed ? at + 1 : at;
        if (isPushed && look.is(making, MOVE_STACK_TO_FRAME)) {
            making += sizeof(MOVE_STACK_TO_FRAME);
        }
        size_t length = 0;
        const uint32_t own = look.subtracted(making, &length);
        const bool isSavedBehind = look.isSavingFrame(making + length);
        if (own == 0 || own % WORD != 0 || own > MOST_FRAME_BYTES ||
            (!isPushed && !isSavedBehind)) {
            continue;
        }
        shape.words = static_cast<int>(own / WORD) + (isPushed ? 2 : 1);
        shape.unsaved = static_cast<uint32_t>(at);
        shape.partial = static_cast<uint32_t>(making);
        break;
    }
    return shape;
}

CodeShape::State CodeShape::stateAt(const uint8_t* code, size_t bytes, size_t offset) const {
    const Instructions look(code, bytes);
    if (offset <= unsaved) {
        return NOTHING;
    }
    if (offset <= partial) {
        return FRAME_POINTER;
    }
    if (look.is(offset, POP_FRAME)) {
        return FRAME_POINTER;
    }
    const bool isLeaving = look.is(offset, RETURN) || look.is(offset, RETURN_AND_POP) ||
                           (look.is(offset, JUMP_IF_ABOVE) && look.is(offset + LONG_JUMP, RETURN));
    return isLeaving || look.isLeft(offset) ? NOTHING : ALL;
}
