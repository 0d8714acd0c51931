#include "instrument/BranchWidening.h"

#include "classfile/OpCodes.h"
#include "instrument/CodeRewrite.h"

namespace {

// An inverted conditional branch over a goto_w and its padding: 11 bytes in place of 3.
constexpr int CONDITIONAL_GROWTH = 8;
// A wide branch and two nops: 7 bytes in place of 3.
constexpr int GOTO_GROWTH = 4;

bool isGotoOrJsr(int opcode) {
    return opcode == OPC_GOTO || opcode == OPC_JSR;
}

bool isShortBranch(int opcode) {
    return ourOpCodes[opcode].kind == OPK_CONDITIONAL || isGotoOrJsr(opcode);
}

// Overwrites the copied short branches by their long forms.
void updateOffsets2LongOffsets(ZSet<int>* longJumps, const unsigned char* oldCode,
                               unsigned char* newCode, const int* map) {
    for (int slot = 0; slot < longJumps->getCapacity(); slot++) {
        if (!longJumps->isFull(slot)) {
            continue;
        }
        const int position = longJumps->keyAt(slot);
        const int offset = readCodeShort(oldCode, position + 1);
        const int converted = convertJump(oldCode[position]);
        unsigned char* const at = newCode + map[position];
        at[0] = static_cast<unsigned char>(converted);
        if (converted == OPC_GOTO_W || converted == OPC_JSR_W) {
            DataOutput::storeInt(at + 1, offset);
            memset(at + 5, OPC_NOP, 2);
        } else {
            DataOutput::storeShort(at + 1, 11);
            at[3] = OPC_GOTO_W;
            DataOutput::storeInt(at + 4, offset - 3);
            memset(at + 8, OPC_NOP, 3);
        }
    }
}

} // namespace

bool canWidenBranches(const CodeAttribute* attribute) {
    return !attribute->hasStackMaps();
}

int convertJump(int opcode) {
    const int code = opcode & 0xff;
    switch (ourOpCodes[code].kind) {
    case OPK_CONDITIONAL:
        return code >= OPC_IFNULL ? code ^ 1 : ((code + 1) ^ 1) - 1;
    case OPK_GOTO:
        return OPC_GOTO_W;
    case OPK_JSR:
        return OPC_JSR_W;
    default:
        Logger::error(ZString("Opcode is not jump: ") + longToString(code), VDK_HERE);
    }
}

bool modifyJumps(MethodInfo* method, ZSet<int>* longJumps) {
    Logger::assertNotNULL(method, VDK_HERE);
    Logger::assertNotNULL(longJumps, VDK_HERE);
    CodeAttribute* const attribute = method->getCodeAttribute();
    Logger::assertNotNULL(attribute, VDK_HERE);
    ClassArena& arena = attribute->getExceptionTable().getArena();
    const int oldLength = attribute->getCodeLength();
    unsigned char* const copy = arena.copyBytes(attribute->getCode(), oldLength);
    int* const map = arena.allocateArray<int>(oldLength + 1);
    OffsetTable table(arena);
    int added = 0;
    int mapped = 0;
    for (int position = 0; position < oldLength;) {
        const int next = nextInstruction(copy, oldLength, position);
        collectBranchOperands(copy, oldLength, position, table);
        for (; mapped < next; mapped++) {
            map[mapped] = mapped + added;
        }
        if (isShortBranch(copy[position]) && longJumps->contains(position)) {
            added += isGotoOrJsr(copy[position]) ? GOTO_GROWTH : CONDITIONAL_GROWTH;
        }
        position = next;
    }
    map[oldLength] = oldLength + added;
    const int newLength = oldLength + added;
    if (!updateAllOffsets(nullptr, table, reinterpret_cast<char*>(copy), map, oldLength) ||
        newLength > 0xffff) {
        return false;
    }
    unsigned char* const newCode = arena.allocateArray<unsigned char>(newLength);
    for (int i = 0; i < oldLength; i++) {
        newCode[map[i]] = copy[i];
    }
    updateOffsets2LongOffsets(longJumps, copy, newCode, map);
    attribute->adoptCode(newCode, newLength);
    attribute->incMaxStackCount(2);
    attribute->shiftTables(CodeOffsets(map, oldLength));
    return true;
}
