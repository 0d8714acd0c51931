#include "instrument/CodeRewrite.h"

#include "classfile/OpCodes.h"

CodeRewrite::CodeRewrite(CodeAttribute* attribute, ClassArena& owner)
    : arena(owner), oldCode(attribute->getCode()), oldLength(attribute->getCodeLength()),
      copy(nullptr), map(owner.allocateArray<int>(oldLength + 1)), mapped(0), added(0),
      allocationCalls(0), offsets(owner), insertions(owner) {}

void CodeRewrite::completeMap(int end) {
    const int shift = added;
    for (int i = mapped; i < end; i++) {
        map[i] = i + shift;
    }
    mapped = end;
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

int CodeRewrite::addInsertion(int kind, int position, int instructionLength, bool hasSwitch) {
    insertions.push({kind, position, instructionLength});
    completeMap(position + instructionLength);
    added += insertionLength(kind, hasSwitch);
    allocationCalls += kind >= INSERT_ARRAY_CALL ? 1 : 0;
    return insertions.getSize() - 1;
}

void CodeRewrite::cancelDup(int insertion) {
    Logger::assertEquals(insertions[insertion].kind, INSERT_NEW_DUP, "CodeRewrite", __LINE__);
    insertions[insertion].kind = INSERT_NEW_CANCELLED;
}

void CodeRewrite::cancelCall(int insertion) {
    Logger::assertEquals(insertions[insertion].kind, INSERT_OBJECT_CALL_OWN, "CodeRewrite",
                         __LINE__);
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
        Logger::assertTrue(target >= 0 && target < length, "CodeRewrite", __LINE__);
        const int newOffset = map[target] - map[instruction];
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

bool CodeRewrite::updateOffsets(ZSet<int>* longJumps) {
    completeMap(oldLength + 1);
    copy = arena.copyBytes(oldCode, oldLength);
    return updateAllOffsets(longJumps, offsets, reinterpret_cast<char*>(copy), map, oldLength);
}

unsigned char* CodeRewrite::assemble(int prefix, const References& references, int methodId,
                                     int variable, bool hasSwitch) {
    Logger::assertNotNULL(copy, "CodeRewrite", __LINE__);
    const int newLength = prefix + getNewLength();
    unsigned char* const newCode = arena.allocateArray<unsigned char>(newLength);
    int from = 0;
    int to = prefix;
    for (int i = 0; i <= insertions.getSize(); i++) {
        const bool last = i == insertions.getSize();
        const bool before = !last && insertions[i].kind == INSERT_EXIT;
        const int end = last     ? oldLength
                        : before ? insertions[i].position
                                 : insertions[i].position + insertions[i].length;
        memcpy(newCode + to, copy + from, static_cast<size_t>(end - from));
        to += end - from;
        from = end;
        if (!last) {
            const int kind = insertions[i].kind;
            to += insertCodeBefore(kind, references.exit, methodId, newCode, to, hasSwitch);
            to += insertCodeAfter(kind, references.alloc, newCode, to, variable);
        }
    }
    Logger::assertEquals(to, newLength, "CodeRewrite", __LINE__);
    for (int i = 0; i <= oldLength; i++) {
        map[i] += prefix;
    }
    return newCode;
}
