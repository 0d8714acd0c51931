#pragma once

// The byte sequences that tracing and allocation recording insert into methods, and their lengths.
// Each writer gives the number of bytes written; the caller has made room for them at `position`.
//
// In a method with a switch every sequence has a length divisible by 4, so that the padding of all
// later switches stays right as it is.

// What is inserted at one instruction.
enum InsertionKind : int {
    INSERT_EXIT = 1,            // exit call in front of a return
    INSERT_NEW_DUP = 2,         // dup behind a `new` whose result the program does not duplicate
    INSERT_NEW_CANCELLED = 3,   // the same, cancelled: nops in its place
    INSERT_ARRAY_CALL = 4,      // allocation call behind an array creation
    INSERT_OBJECT_CALL = 5,     // allocation call behind a constructor, the program's dup
    INSERT_OBJECT_CALL_OWN = 6, // allocation call behind a constructor, the dup of kind 2
    INSERT_CALL_CANCELLED = 7,  // the same, cancelled after its place was reserved: nops
    INSERT_CATCH = 8,           // catch call in front of the first instruction of a handler
    INSERT_CREATED = 9,         // in front of a return of a constructor, with its object
    INSERT_CAUGHT = 10, // in front of the first instruction of a `catch`, with its exception
    // Code that the caller of CodeRewrite brings along.
    INSERT_BLOCK_BEHIND = 0,
    INSERT_BLOCK = 11 // in front
};

constexpr int NEW_DUP_LENGTH = 4;
constexpr int ALLOCATION_CALL_LENGTH = 12;
constexpr int EXCEPTION_CALL_LENGTH = 4;
constexpr int ENTRY_CODE_STACK = 2;

// The variable is the slot of the allocation variable, -1 if the method has none.
inline int ENTRY_CODE_LENGTH(bool hasSwitch, bool hasVariable) {
    return hasSwitch ? 16 : hasVariable ? 14 : 9;
}
inline int ALLOC_ONLY_ENTRY_CODE_LENGTH(bool hasVariable) {
    return hasVariable ? 8 : 0;
}
inline int EXIT_CODE_LENGTH(bool hasSwitch) {
    return hasSwitch ? 12 : 9;
}

int insertEntryCode(int entryRef, int methodId, unsigned char* code, int position, int variable,
                    bool hasSwitch);
int insertAllocOnlyEntryCode(unsigned char* code, int position, int variable);
int insertExitCode(int exitRef, int methodId, unsigned char* code, int position, bool hasSwitch);
// Entered with the exception on the stack, which stays there.
int insertCatchCode(int catchRef, int methodId, unsigned char* code, int position, bool hasSwitch);
// Pushes the object with one instruction and calls: INSERT_CREATED, INSERT_CAUGHT.
int insertExceptionCode(int kind, int callRef, unsigned char* code, int position);
int insertNewArrayCode(int allocRef, unsigned char* code, int position, int variable);
int insertNewCodeStart(unsigned char* code, int position, int kind);
int insertNewCodeEnd(int allocRef, unsigned char* code, int position, int kind, int variable);

// Whether an insertion of this kind stands in front of its instruction: branches to the instruction
// arrive at it.
inline bool isInsertedBefore(int kind) {
    return kind == INSERT_EXIT || kind >= INSERT_CATCH;
}
// What belongs in front of and behind an instruction with an insertion of this kind. callRef: the
// method that the call in front names.
int insertCodeBefore(int kind, int callRef, int methodId, unsigned char* code, int position,
                     bool hasSwitch);
int insertCodeAfter(int kind, int allocRef, unsigned char* code, int position, int variable);
// Bytes that an insertion of this kind adds.
int insertionLength(int kind, bool hasSwitch);
// Slots of the operand stack that it takes above what is there, the dup of kind 2 apart.
int insertionStack(int kind);
