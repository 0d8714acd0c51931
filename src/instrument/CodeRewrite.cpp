#include "instrument/CodeRewrite.h"

#include "classfile/OpCodes.h"

CodeRewrite::CodeRewrite(CodeAttribute* attribute, ClassArena& scratch, bool containsSwitch)
    : arena(scratch), oldCode(attribute->getCode()), oldLength(attribute->getCodeLength()),
      hasSwitch(containsSwitch), corrected(nullptr), map(nullptr), prefixLength(0), added(0),
      offsets(scratch), insertions(scratch), inFront{nullptr, 0}, behind{nullptr, 0} {}

void CodeRewrite::fillMap(int from, int to, int shift) {
    for (int i = from; i < to; i++) {
        map[i] = i + shift;
    }
}

void collectBranchOperands(const unsigned char* code, int length, int position,
                           OffsetTable& table) {
    switch (ourOpCodes[code[position]].kind) {
    case OPK_CONDITIONAL:
    case OPK_GOTO:
    case OPK_JSR:
        table.addOffsetToTable(position, position + 1, true);
        return;
    case OPK_GOTO_W:
    case OPK_JSR_W:
        table.addOffsetToTable(position, position + 1, false);
        return;
    case OPK_TABLESWITCH:
    case OPK_LOOKUPSWITCH: {
        const bool isTable = code[position] == OPC_TABLESWITCH;
        const int operands = switchOperands(position);
        const int end = nextInstruction(code, length, position);
        table.addOffsetToTable(position, operands, false);
        // Jump offsets stand alone in the one, behind their keys in the other.
        const int step = isTable ? 4 : 8;
        for (int at = operands + 12; at < end; at += step) {
            table.addOffsetToTable(position, at, false);
        }
        return;
    }
    default:
        return;
    }
}

void CodeRewrite::setBlock(int kind, const unsigned char* bytes, int length) {
    Logger::assertTrue(isBlock(kind) && length >= 0 && (!hasSwitch || length % 4 == 0), VDK_HERE);
    (kind == INSERT_BLOCK ? inFront : behind) = {bytes, length};
}

int CodeRewrite::lengthOf(int kind) const {
    return isBlock(kind) ? blockOf(kind).length : insertionLength(kind, hasSwitch);
}

int CodeRewrite::addInsertion(int kind, int position, int instructionLength) {
    insertions.push({kind, position, instructionLength});
    added += lengthOf(kind);
    return insertions.getSize() - 1;
}

void CodeRewrite::cancelDup(int insertion) {
    Logger::assertEquals(insertions[insertion].kind, INSERT_NEW_DUP, VDK_HERE);
    insertions[insertion].kind = INSERT_NEW_CANCELLED;
}

void CodeRewrite::cancelCall(int insertion) {
    Logger::assertEquals(insertions[insertion].kind, INSERT_OBJECT_CALL_OWN, VDK_HERE);
    insertions[insertion].kind = INSERT_CALL_CANCELLED;
}

bool updateAllOffsets(ZSet<int>* longJumps, OffsetTable& table, char* text, const int* map,
                      int length) {
    unsigned char* const code = reinterpret_cast<unsigned char*>(text);
    bool fits = true;
    for (int i = 0; i < table.getSize(); i++) {
        const int instruction = table.getInstructionIndex(i);
        const int at = table.getOffsetIndex(i);
        const bool isShort = table.isShort(i);
        const int oldOffset = isShort ? readCodeShort(code, at) : readCodeInt(code, at);
        const long target = static_cast<long>(instruction) + oldOffset;
        Logger::assertTrue(target >= 0 && target < length, VDK_HERE);
        // What stands in front of an instruction stands between its map entry and itself.
        const int newOffset = map[target] - (map[instruction + 1] - 1);
        if (newOffset == oldOffset) {
            continue;
        }
        if (!isShort) {
            DataOutput::storeInt(code + at, newOffset);
        } else if (newOffset >= -32768 && newOffset <= 32767) {
            DataOutput::storeShort(code + at, newOffset);
        } else {
            if (longJumps == nullptr) {
                return false;
            }
            longJumps->add(instruction);
            fits = false;
        }
    }
    return fits;
}

bool CodeRewrite::updateOffsets(int prefix, ZSet<int>* longJumps) {
    prefixLength = prefix;
    map = arena.allocateArray<int>(oldLength + 1);
    int from = 0;
    int shift = prefix;
    for (int i = 0; i < insertions.getSize(); i++) {
        const Insertion& insertion = insertions[i];
        const int behind = insertion.position + insertion.length;
        fillMap(from, behind, shift);
        from = behind;
        shift += lengthOf(insertion.kind);
    }
    fillMap(from, oldLength + 1, shift);
    if (offsets.getSize() == 0) {
        corrected = oldCode;
        return true;
    }
    unsigned char* const copy = arena.copyBytes(oldCode, oldLength);
    corrected = copy;
    return updateAllOffsets(longJumps, offsets, reinterpret_cast<char*>(copy), map, oldLength);
}

unsigned char* CodeRewrite::assemble(ClassArena& target, const References& references, int methodId,
                                     int variable, int suffix) {
    Logger::assertNotNULL(corrected, VDK_HERE);
    const int newLength = prefixLength + getNewLength();
    unsigned char* const newCode = target.allocateArray<unsigned char>(newLength + suffix);
    int from = 0;
    int to = prefixLength;
    for (int i = 0; i < insertions.getSize(); i++) {
        const Insertion& insertion = insertions[i];
        const bool before = isInsertedBefore(insertion.kind);
        const int end = insertion.position + (before ? 0 : insertion.length);
        memcpy(newCode + to, corrected + from, static_cast<size_t>(end - from));
        to += end - from;
        from = end;
        if (isBlock(insertion.kind)) {
            const Block& block = blockOf(insertion.kind);
            memcpy(newCode + to, block.bytes, static_cast<size_t>(block.length));
            to += block.length;
            continue;
        }
        const int call = insertion.kind == INSERT_CATCH     ? references.handler
                         : insertion.kind == INSERT_CREATED ? references.created
                         : insertion.kind == INSERT_CAUGHT  ? references.caught
                                                            : references.exit;
        to += insertCodeBefore(insertion.kind, call, methodId, newCode, to, hasSwitch);
        to += insertCodeAfter(insertion.kind, references.alloc, newCode, to, variable);
    }
    memcpy(newCode + to, corrected + from, static_cast<size_t>(oldLength - from));
    to += oldLength - from;
    Logger::assertEquals(to, newLength, VDK_HERE);
    return newCode;
}
