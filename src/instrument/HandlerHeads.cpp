#include "instrument/HandlerHeads.h"

#include "classfile/OpCodes.h"

namespace {

enum HeadMark : unsigned char { NO_HEAD, HEAD = 1, CATCHING = 2, HEAD_INSIDE_ITS_OWN_RANGE = 4 };

// Runs no other code of the program, and goes on to the next instruction. Constants of the pool and
// types may have to be loaded, so their instructions are not among these.
bool isQuiet(int opcode) {
    switch (ourOpCodes[opcode].kind) {
    case OPK_PLAIN:
        return (opcode < OPC_LDC || opcode > OPC_LDC2_W) && opcode != OPC_CHECKCAST &&
               opcode != OPC_INSTANCEOF && opcode != OPC_MONITORENTER;
    case OPK_FIELD:
        return true;
    default:
        return false;
    }
}

bool throwsOnQuietly(const unsigned char* code, int length, int position) {
    while (position < length && isQuiet(code[position])) {
        position = nextInstruction(code, length, position);
    }
    return position < length && code[position] == OPC_ATHROW;
}

} // namespace

HandlerHeads::HandlerHeads(CodeAttribute* body, ClassArena& scratch)
    : heads(scratch), own(scratch) {
    ArenaVector<CodeAttribute::ExceptionTableElement>& table = body->getExceptionTable();
    if (table.isEmpty()) {
        return;
    }
    const unsigned char* const code = body->getCode();
    const int length = body->getCodeLength();
    auto* const marks = scratch.allocateArray<unsigned char>(length);
    // How the number of ranges with a handler further up changes from one position to the next.
    auto* const changes = scratch.allocateArray<int>(length + 1);
    memset(marks, 0, static_cast<size_t>(length));
    memset(changes, 0, sizeof(int) * (static_cast<size_t>(length) + 1));
    for (int i = 0; i < table.getSize(); i++) {
        const CodeAttribute::ExceptionTableElement& row = table[i];
        const int handler = row.handlerPc;
        Logger::assertTrue(
            handler >= 0 && handler < length && row.startPc >= 0 && row.endPc <= length, VDK_HERE);
        if (row.startPc < handler && handler < row.endPc) {
            marks[handler] |= HEAD_INSIDE_ITS_OWN_RANGE;
        } else {
            marks[handler] |= row.catchType != 0 ? HEAD | CATCHING : HEAD;
        }
        const int behind = row.startPc > handler ? row.startPc : handler + 1;
        if (behind < row.endPc) {
            changes[behind]++;
            changes[row.endPc]--;
        }
    }
    int backwards = 0;
    int counted = 0;
    for (int position = 0; position < length;) {
        for (; counted <= position; counted++) {
            backwards += changes[counted];
        }
        const int mark = marks[position];
        const bool isHead = (mark & HEAD) != 0 && (mark & HEAD_INSIDE_ITS_OWN_RANGE) == 0 &&
                            backwards == 0 && !throwsOnQuietly(code, length, position);
        if (isHead) {
            heads.push({position, (mark & CATCHING) != 0});
        } else {
            marks[position] = NO_HEAD;
        }
        const int next = nextInstruction(code, length, position);
        memset(marks + position + 1, NO_HEAD, static_cast<size_t>(next - position - 1));
        position = next;
    }
    for (int i = 0; i < table.getSize(); i++) {
        const int mark = marks[table[i].handlerPc];
        if (table[i].startPc == table[i].handlerPc && mark != NO_HEAD) {
            own.push({i, (mark & CATCHING) != 0});
        }
    }
}

bool HandlerHeads::anyCatches() const {
    for (int i = 0; i < heads.getSize(); i++) {
        if (heads[i].catches) {
            return true;
        }
    }
    return false;
}
