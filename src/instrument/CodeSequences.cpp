#include "instrument/CodeSequences.h"

#include "classfile/OpCodes.h"

namespace {

// Writes instructions from a position on.
class SequenceWriter {
public:
    SequenceWriter(unsigned char* code, int position) : start(code + position), at(start) {
        Logger::assertNotNULL(code, VDK_HERE);
        Logger::assertTrue(position >= 0, VDK_HERE);
    }
    void byte(int value) { *at++ = static_cast<unsigned char>(value); }
    void instruction(int opcode, int operand) {
        byte(opcode);
        byte(operand >> 8);
        byte(operand);
    }
    void wide(int opcode, int slot) {
        byte(OPC_WIDE);
        instruction(opcode, slot);
    }
    void nops(int count) {
        for (int i = 0; i < count; i++) {
            byte(OPC_NOP);
        }
    }
    // iconst_m1, wide istore: no frame is known yet.
    void setUpVariable(int variable) {
        byte(OPC_ICONST_M1);
        wide(OPC_ISTORE, variable);
    }
    // The id as two shorts, low half first, and the call.
    void callWithMethodId(int methodId, int reference) {
        instruction(OPC_SIPUSH, methodId);
        instruction(OPC_SIPUSH, methodId >> 16);
        instruction(OPC_INVOKESTATIC, reference);
    }
    // The object is on the stack; the call takes it and the variable and gives the variable anew.
    void callAllocation(int reference, int variable) {
        wide(OPC_ILOAD, variable);
        instruction(OPC_INVOKESTATIC, reference);
        wide(OPC_ISTORE, variable);
    }
    int finish(int expected) const {
        Logger::assertEquals(at - start, expected, VDK_HERE);
        return expected;
    }

private:
    unsigned char* const start;
    unsigned char* at;
};

[[noreturn]] void failKind(const char* text, int kind) {
    Logger::error(ZString(text) + longToString(kind), VDK_HERE);
}

} // namespace

int insertEntryCode(int entryRef, int methodId, unsigned char* code, int position, int variable,
                    bool hasSwitch) {
    SequenceWriter writer(code, position);
    const bool hasVariable = variable >= 0;
    if (hasVariable) {
        writer.setUpVariable(variable);
    }
    writer.callWithMethodId(methodId, entryRef);
    if (hasSwitch) {
        writer.nops(hasVariable ? 2 : 7);
    }
    return writer.finish(ENTRY_CODE_LENGTH(hasSwitch, hasVariable));
}

int insertAllocOnlyEntryCode(unsigned char* code, int position, int variable) {
    SequenceWriter writer(code, position);
    if (variable >= 0) {
        writer.setUpVariable(variable);
        writer.nops(3);
    }
    return writer.finish(ALLOC_ONLY_ENTRY_CODE_LENGTH(variable >= 0));
}

int insertExitCode(int exitRef, int methodId, unsigned char* code, int position, bool hasSwitch) {
    SequenceWriter writer(code, position);
    writer.callWithMethodId(methodId, exitRef);
    writer.nops(hasSwitch ? 3 : 0);
    return writer.finish(EXIT_CODE_LENGTH(hasSwitch));
}

int insertCatchCode(int catchRef, int methodId, unsigned char* code, int position, bool hasSwitch) {
    return insertExitCode(catchRef, methodId, code, position, hasSwitch);
}

int insertExceptionCode(int kind, int callRef, unsigned char* code, int position) {
    SequenceWriter writer(code, position);
    writer.byte(kind == INSERT_CREATED ? OPC_ALOAD_0 : OPC_DUP);
    writer.instruction(OPC_INVOKESTATIC, callRef);
    return writer.finish(EXCEPTION_CALL_LENGTH);
}

int insertNewArrayCode(int allocRef, unsigned char* code, int position, int variable) {
    Logger::assertTrue(allocRef >= 0, VDK_HERE);
    SequenceWriter writer(code, position);
    writer.byte(OPC_DUP);
    writer.callAllocation(allocRef, variable);
    return writer.finish(ALLOCATION_CALL_LENGTH);
}

int insertNewCodeStart(unsigned char* code, int position, int kind) {
    if (kind != INSERT_NEW_DUP && kind != INSERT_NEW_CANCELLED) {
        failKind("unexpected type ", kind);
    }
    SequenceWriter writer(code, position);
    writer.byte(kind == INSERT_NEW_DUP ? OPC_DUP : OPC_NOP);
    writer.nops(3);
    return writer.finish(NEW_DUP_LENGTH);
}

int insertNewCodeEnd(int allocRef, unsigned char* code, int position, int kind, int variable) {
    Logger::assertTrue(allocRef >= 0, VDK_HERE);
    if (kind != INSERT_OBJECT_CALL && kind != INSERT_OBJECT_CALL_OWN) {
        failKind("unexpected type ", kind);
    }
    SequenceWriter writer(code, position);
    writer.byte(kind == INSERT_OBJECT_CALL ? OPC_DUP : OPC_NOP);
    writer.callAllocation(allocRef, variable);
    return writer.finish(ALLOCATION_CALL_LENGTH);
}

int insertCodeBefore(int kind, int callRef, int methodId, unsigned char* code, int position,
                     bool hasSwitch) {
    switch (kind) {
    case INSERT_EXIT:
        return insertExitCode(callRef, methodId, code, position, hasSwitch);
    case INSERT_CATCH:
        return insertCatchCode(callRef, methodId, code, position, hasSwitch);
    case INSERT_CREATED:
    case INSERT_CAUGHT:
        return insertExceptionCode(kind, callRef, code, position);
    default:
        break;
    }
    if (kind < INSERT_NEW_DUP || kind > INSERT_CALL_CANCELLED) {
        failKind("Illegal instruction type: ", kind);
    }
    return 0;
}

int insertCodeAfter(int kind, int allocRef, unsigned char* code, int position, int variable) {
    switch (kind) {
    case INSERT_EXIT:
    case INSERT_CATCH:
    case INSERT_CREATED:
    case INSERT_CAUGHT:
        return 0;
    case INSERT_NEW_DUP:
    case INSERT_NEW_CANCELLED:
        return insertNewCodeStart(code, position, kind);
    case INSERT_ARRAY_CALL:
        return insertNewArrayCode(allocRef, code, position, variable);
    case INSERT_OBJECT_CALL:
    case INSERT_OBJECT_CALL_OWN:
        return insertNewCodeEnd(allocRef, code, position, kind, variable);
    case INSERT_CALL_CANCELLED: {
        SequenceWriter writer(code, position);
        writer.nops(ALLOCATION_CALL_LENGTH);
        return writer.finish(ALLOCATION_CALL_LENGTH);
    }
    default:
        failKind("Illegal instruction type: ", kind);
    }
}

int insertionLength(int kind, bool hasSwitch) {
    switch (kind) {
    case INSERT_EXIT:
    case INSERT_CATCH:
        return EXIT_CODE_LENGTH(hasSwitch);
    case INSERT_NEW_DUP:
    case INSERT_NEW_CANCELLED:
        return NEW_DUP_LENGTH;
    case INSERT_CREATED:
    case INSERT_CAUGHT:
        return EXCEPTION_CALL_LENGTH;
    default:
        return ALLOCATION_CALL_LENGTH;
    }
}

int insertionStack(int kind) {
    switch (kind) {
    case INSERT_NEW_DUP:
    case INSERT_NEW_CANCELLED:
    case INSERT_CALL_CANCELLED:
        return 0;
    case INSERT_OBJECT_CALL_OWN:
    case INSERT_CREATED:
    case INSERT_CAUGHT:
        return 1;
    default:
        return 2;
    }
}
