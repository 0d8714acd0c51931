#pragma once

#include "classfile/OpCodeTable.h"
#include "core/ground/Logger.h"

// Instruction lengths, kinds and stack effects, big-endian access to code, and the scanners that
// classify a method in one cheap walk without allocating.

enum OpCode : int {
#define OP(code, name, length, kind, pops, pushes) OPC_##name = code,
    VDK_OPCODES(OP)
#undef OP
};

// What a walker has to know about an instruction beside its length.
enum OpCodeKind : unsigned char {
    OPK_UNDEFINED,
    OPK_PLAIN,
    OPK_CONDITIONAL,
    OPK_GOTO,
    OPK_JSR,
    OPK_GOTO_W,
    OPK_JSR_W,
    OPK_RET,
    OPK_TABLESWITCH,
    OPK_LOOKUPSWITCH,
    OPK_RETURN,
    OPK_ATHROW,
    OPK_FIELD,
    OPK_INVOKE,
    OPK_NEW,
    OPK_NEWARRAY,
    OPK_MULTIANEWARRAY,
    OPK_WIDE
};

struct OpCodeInfo {
    signed char length; // in bytes with operands; -1 where the opcode alone does not tell
    OpCodeKind kind;
    signed char pops;   // operand stack slots, without those that a descriptor tells
    signed char pushes; // likewise
};

extern const OpCodeInfo ourOpCodes[256];

// Length of the instruction, operands included; -1 for the switches, wide and undefined opcodes.
// The breakpoint (202) and the two opcodes reserved for implementations (254, 255) have length 1.
extern const int ourOpCodeLength[256];

inline int readCodeInt(const unsigned char* code, int index) {
    Logger::assertNotNULL(code, VDK_HERE);
    Logger::assertTrue(index >= 0, VDK_HERE);
    return static_cast<int>(static_cast<unsigned>(code[index]) << 24 |
                            static_cast<unsigned>(code[index + 1]) << 16 |
                            static_cast<unsigned>(code[index + 2]) << 8 | code[index + 3]);
}
inline int readCodeUnsignedShort(const unsigned char* code, int index) {
    Logger::assertNotNULL(code, VDK_HERE);
    Logger::assertTrue(index >= 0, VDK_HERE);
    return code[index] << 8 | code[index + 1];
}
inline int readCodeShort(const unsigned char* code, int index) {
    return static_cast<short>(readCodeUnsignedShort(code, index));
}
inline int readCodeByte(const unsigned char* code, int index) {
    Logger::assertNotNULL(code, VDK_HERE);
    Logger::assertTrue(index >= 0, VDK_HERE);
    return code[index];
}

// Position of the instruction behind the one at `position`, which need not lie inside the code: an
// instruction cut off by the end of the code is an internal error, and so is an undefined opcode
// ("Wrong instruction opcode found: ").
int nextInstruction(const unsigned char* code, int length, int position);

// First operand of a switch at `position`: the next multiple of 4 behind the opcode.
inline int switchOperands(int position) {
    return (position + 4) & ~3;
}

[[noreturn]] void failOpCode(int opcode);

// 172 to 177.
inline bool isReturnOpcode(int opcode) {
    return opcode >= OPC_IRETURN && opcode <= OPC_RETURN;
}
// The five one-byte loads of slot 0.
inline bool isLoad0Opcode(int opcode) {
    return opcode >= OPC_ILOAD_0 && opcode <= OPC_ALOAD_0 && (opcode - OPC_ILOAD_0) % 4 == 0;
}
// The five one-byte loads of slot 1.
inline bool isLoad1Opcode(int opcode) {
    return opcode >= OPC_ILOAD_1 && opcode <= OPC_ALOAD_1 && (opcode - OPC_ILOAD_1) % 4 == 0;
}

// What one walk over a method tells.
struct CodeTraits {
    bool hasSwitch;
    bool createsObjects; // or arrays
};
// marks, with room for `length` of them, takes the positions of all branches, switches and returns,
// ascending.
CodeTraits scanCode(const unsigned char* code, int length, unsigned short* marks, int* markCount);

// Answers whether a method creates objects or arrays.
class NewOpCodeDetector {
public:
    // False for a length below 1.
    static bool containsNewOpCode(const char* code, int length);
};

// Answers whether a method holds a tableswitch or lookupswitch.
class SwitchDetector {
public:
    static bool containsSwitch(const char* code, int length);
};
