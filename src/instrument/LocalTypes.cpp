#include "instrument/LocalTypes.h"

#include "classfile/OpCodes.h"

namespace {
const VerificationType UNUSABLE(VERIFICATION_TOP, -1);
// Of the store families, in the order of their opcodes.
const VerificationTag STORED[] = {VERIFICATION_INT, VERIFICATION_LONG, VERIFICATION_FLOAT,
                                  VERIFICATION_DOUBLE, VERIFICATION_OBJECT};
} // namespace

StoredLocal storedLocal(const unsigned char* code, int position) {
    const bool isWide = code[position] == OPC_WIDE;
    const int opcode = code[position + (isWide ? 1 : 0)];
    const int operand = isWide ? position + 2 : position + 1;
    if (opcode >= OPC_ISTORE_0 && opcode <= OPC_ASTORE_3) {
        return {(opcode - OPC_ISTORE_0) % 4, STORED[(opcode - OPC_ISTORE_0) / 4]};
    }
    const bool isStore = opcode >= OPC_ISTORE && opcode <= OPC_ASTORE;
    if (!isStore && opcode != OPC_IINC) {
        return {-1, VERIFICATION_TOP};
    }
    const int slot = isWide ? readCodeUnsignedShort(code, operand) : code[operand];
    return {slot, isStore ? STORED[opcode - OPC_ISTORE] : VERIFICATION_INT};
}

LocalTypes::LocalTypes(CodeAttribute* body, ClassArena& scratch, int endOfInit)
    : frames(body->getFrames()), code(body->getCode()), length(body->getCodeLength()),
      slots(body->getMaxLocals()), initEnd(endOfInit),
      types(scratch.allocateArray<VerificationType>(slots + 1)), position(0), nextFrame(1),
      known(true) {
    readFrame(frames[0]);
}

void LocalTypes::readFrame(StackMapFrame* frame) {
    for (int i = 0; i < slots; i++) {
        types[i] = UNUSABLE;
    }
    int slot = 0;
    const ArenaVector<VerificationType>& locals = frame->getLocals();
    for (int i = 0; i < locals.getSize() && slot + locals[i].getSlots() <= slots; i++) {
        // An object on its way to be initialised is good for nothing that we do.
        types[slot] = locals[i].getTag() == VERIFICATION_UNINITIALIZED ? UNUSABLE : locals[i];
        slot += locals[i].getSlots();
    }
    known = true;
}

void LocalTypes::store(int slot, VerificationType type) {
    Logger::assertTrue(slot + type.getSlots() <= slots, VDK_HERE);
    if (slot > 0 && types[slot - 1].isWide()) {
        types[slot - 1] = UNUSABLE;
    }
    types[slot] = type;
    if (type.isWide()) {
        types[slot + 1] = UNUSABLE;
    }
}

void LocalTypes::moveTo(int wanted) {
    for (;;) {
        if (nextFrame < frames.getSize() && frames[nextFrame]->getOffset() <= position) {
            readFrame(frames[nextFrame++]);
            continue;
        }
        if (position >= wanted || position >= length) {
            break;
        }
        const StoredLocal stored = storedLocal(code, position);
        if (stored.slot >= 0) {
            const bool isReference = stored.tag == VERIFICATION_OBJECT;
            known = known && !isReference;
            store(stored.slot, isReference ? UNUSABLE : VerificationType(stored.tag, -1));
        }
        position = nextInstruction(code, length, position);
        if (position == initEnd) {
            for (int i = 0; i < slots; i++) {
                if (types[i].getTag() == VERIFICATION_UNINITIALIZED_THIS) {
                    types[i] = VerificationType(VERIFICATION_OBJECT, types[i].getValue());
                }
            }
        }
    }
}

const StackMapFrame* LocalTypes::frameAt(int offset) const {
    int low = 1;
    int high = frames.getSize();
    while (low < high) {
        const int middle = (low + high) / 2;
        if (frames[middle]->getOffset() < offset) {
            low = middle + 1;
        } else {
            high = middle;
        }
    }
    return low < frames.getSize() && frames[low]->getOffset() == offset ? frames[low] : nullptr;
}

bool LocalTypes::takeFromHandler(const StackMapFrame* frame, ZVector<int>& taken) {
    const ArenaVector<VerificationType>& locals = frame->getLocals();
    int slot = 0;
    for (int i = 0; i < locals.getSize(); i++) {
        const VerificationType wanted = locals[i];
        if (slot + wanted.getSlots() > slots) {
            return false;
        }
        bool isTaken = false;
        for (int k = 0; k < taken.getSize(); k++) {
            isTaken = isTaken || taken[k] == slot;
        }
        if (isTaken && wanted.getTag() != VERIFICATION_TOP &&
            !VerificationType::isSameType(wanted, types[slot])) {
            return false;
        }
        if (types[slot].getTag() == VERIFICATION_TOP && wanted.getTag() != VERIFICATION_TOP) {
            if (wanted.getTag() != VERIFICATION_OBJECT) {
                return false;
            }
            types[slot] = wanted;
            taken.push(slot);
        }
        slot += wanted.getSlots();
    }
    return true;
}

bool LocalTypes::takeFromHandlers(ArenaVector<CodeAttribute::ExceptionTableElement>& table) {
    ZVector<int> taken;
    for (int i = 0; i < table.getSize(); i++) {
        if (table[i].startPc > position || position >= table[i].endPc) {
            continue;
        }
        const StackMapFrame* const frame = frameAt(table[i].handlerPc);
        if (frame == nullptr || !takeFromHandler(frame, taken)) {
            return false;
        }
    }
    return true;
}

void LocalTypes::fill(ArenaVector<VerificationType>& locals) const {
    locals.clear();
    for (int slot = 0; slot < slots; slot += types[slot].getSlots()) {
        locals.push(types[slot]);
    }
    while (!locals.isEmpty() && locals.peek().getTag() == VERIFICATION_TOP) {
        locals.pop();
    }
}
