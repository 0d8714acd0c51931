#include "classfile/OpCodes.h"

const OpCodeInfo ourOpCodes[256] = {
#define OP(code, name, length, kind, pops, pushes) {length, OPK_##kind, pops, pushes},
    VDK_OPCODES(OP)
#undef OP
    // 202 is the debugger's breakpoint; 203 to 253 mean nothing.
    {1, OPK_PLAIN, 0, 0},
#define UNDEFINED                                                                                  \
    { -1, OPK_UNDEFINED, 0, 0 }
#define UNDEFINED_17                                                                               \
    UNDEFINED, UNDEFINED, UNDEFINED, UNDEFINED, UNDEFINED, UNDEFINED, UNDEFINED, UNDEFINED,        \
        UNDEFINED, UNDEFINED, UNDEFINED, UNDEFINED, UNDEFINED, UNDEFINED, UNDEFINED, UNDEFINED,    \
        UNDEFINED
    UNDEFINED_17,
    UNDEFINED_17,
    UNDEFINED_17,
#undef UNDEFINED_17
#undef UNDEFINED
    // Reserved for the implementation.
    {1, OPK_PLAIN, 0, 0},
    {1, OPK_PLAIN, 0, 0},
};

const int ourOpCodeLength[256] = {
#define OP(code, name, length, kind, pops, pushes) length,
    VDK_OPCODES(OP)
#undef OP
        1,
#define UNDEFINED_17 -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1
    UNDEFINED_17,
    UNDEFINED_17,
    UNDEFINED_17,
#undef UNDEFINED_17
    1,
    1,
};

namespace {

// What the scan has to know about an opcode: its length, 0 where the opcode alone does not tell,
// and what it is.
enum ScanBits : unsigned char {
    SCAN_LENGTH = 7,
    SCAN_MARK = 8, // branches, switches, returns
    SCAN_SWITCH = 16,
    SCAN_NEW = 32
};

constexpr unsigned char scanRow(int length, OpCodeKind kind) {
    const bool isSwitch = kind == OPK_TABLESWITCH || kind == OPK_LOOKUPSWITCH;
    const bool isMark = (kind >= OPK_CONDITIONAL && kind <= OPK_JSR_W) || kind == OPK_RETURN;
    const bool isNew = kind >= OPK_NEW && kind <= OPK_MULTIANEWARRAY;
    return static_cast<unsigned char>((length > 0 ? length : 0) |
                                      (isMark || isSwitch ? SCAN_MARK : 0) |
                                      (isSwitch ? SCAN_SWITCH : 0) | (isNew ? SCAN_NEW : 0));
}

const unsigned char SCAN[256] = {
#define OP(code, name, length, kind, pops, pushes) scanRow(length, OPK_##kind),
    VDK_OPCODES(OP)
#undef OP
        1,
#define NOTHING_17 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0
    NOTHING_17,
    NOTHING_17,
    NOTHING_17,
#undef NOTHING_17
    1,
    1,
};

[[noreturn]] void failCutOff(int position) {
    Logger::error(ZString("Instruction reaches beyond the code at ") + longToString(position),
                  VDK_HERE);
}

// Walks the code and says whether any opcode satisfies the test.
template <typename Test>
bool anyOpcode(const char* text, int length, Test test) {
    const unsigned char* const code = reinterpret_cast<const unsigned char*>(text);
    int position = 0;
    while (position < length) {
        const int opcode = code[position];
        if (test(opcode)) {
            return true;
        }
        const int step = ourOpCodeLength[opcode];
        position = step > 0 ? position + step : nextInstruction(code, length, position);
    }
    return false;
}

} // namespace

void failOpCode(int opcode) {
    Logger::error(ZString("Wrong instruction opcode found: ") + longToString(opcode), VDK_HERE);
}

int nextInstruction(const unsigned char* code, int length, int position) {
    const int opcode = code[position];
    const int step = ourOpCodeLength[opcode];
    if (step > 0) {
        if (step > length - position) {
            failCutOff(position);
        }
        return position + step;
    }
    if (opcode == OPC_WIDE) {
        if (position + 1 >= length) {
            failCutOff(position);
        }
        const int next = position + (code[position + 1] == OPC_IINC ? 6 : 4);
        if (next > length) {
            failCutOff(position);
        }
        return next;
    }
    const int operands = switchOperands(position);
    // Counts are taken as 64-bit: a hostile one must not wrap around.
    long next;
    if (opcode == OPC_TABLESWITCH) {
        if (operands > length - 12) {
            failCutOff(position);
        }
        const long low = readCodeInt(code, operands + 4);
        const long high = readCodeInt(code, operands + 8);
        next = high - low + 1 <= 0 ? operands + 12L : operands + 16L + 4 * (high - low);
    } else if (opcode == OPC_LOOKUPSWITCH) {
        if (operands > length - 8) {
            failCutOff(position);
        }
        const long pairs = readCodeInt(code, operands + 4);
        next = pairs <= 0 ? operands + 8L : operands + 8L + 8 * pairs;
    } else {
        failOpCode(opcode);
    }
    if (next > length) {
        failCutOff(position);
    }
    return static_cast<int>(next);
}

CodeTraits scanCode(const unsigned char* code, int length, unsigned short* marks, int* markCount) {
    int seen = 0;
    int count = 0;
    int position = 0;
    int last = 0;
    while (position < length) {
        const int row = SCAN[code[position]];
        // The next mark overwrites this position if it is none: no branch is as fast.
        marks[count] = static_cast<unsigned short>(position);
        count += (row & SCAN_MARK) != 0 ? 1 : 0;
        seen |= row;
        last = position;
        const int step = row & SCAN_LENGTH;
        if (__builtin_expect(step != 0, 1)) {
            position += step;
        } else {
            position = nextInstruction(code, length, position);
        }
    }
    if (position > length) {
        failCutOff(last);
    }
    *markCount = count;
    return {(seen & SCAN_SWITCH) != 0, (seen & SCAN_NEW) != 0};
}

bool NewOpCodeDetector::containsNewOpCode(const char* code, int length) {
    return anyOpcode(code, length, [](int opcode) {
        return (opcode >= OPC_NEW && opcode <= OPC_ANEWARRAY) || opcode == OPC_MULTIANEWARRAY;
    });
}

bool SwitchDetector::containsSwitch(const char* code, int length) {
    return anyOpcode(code, length, [](int opcode) {
        return opcode == OPC_TABLESWITCH || opcode == OPC_LOOKUPSWITCH;
    });
}
