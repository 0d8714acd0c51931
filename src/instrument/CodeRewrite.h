#pragma once

#include "classfile/ClassFile.h"
#include "classfile/OffsetTable.h"
#include "classfile/OpCodes.h"
#include "core/ground/ZSet.h"
#include "instrument/CodeSequences.h"

// Notes the branch operands of the instruction at `position` in a table.
void collectBranchOperands(const unsigned char* code, int length, int position, OffsetTable& table);

// CodeRewrite: one attempt to place sequences around instructions of a method.
//
// DESCRIPTION
//   The caller tells, in ascending order, each branch operand and each insertion; updateOffsets and
//   assemble then give the new code. Nothing of the method is touched, so an attempt that does not
//   work out costs only memory.
// IMPLEMENTATION
//   A map holds the new position of every old one. Operands are corrected by it in a private copy
//   of the code, which is then copied in runs between the inserted sequences. A branch to a return
//   arrives at the exit code in front of it.
class CodeRewrite {
public:
    // References into the class's pool that the sequences use.
    struct References {
        int entry;
        int exit;
        int alloc;
        // Few classes need these: 0 until a method does.
        int handler;
        int created;
        int caught;
    };

    // scratch: an arena that outlives this object. With a switch in the code what is inserted keeps
    // the padding of later ones.
    CodeRewrite(CodeAttribute* attribute, ClassArena& scratch, bool hasSwitch);

    const unsigned char* getCode() const { return oldCode; }
    int getLength() const { return oldLength; }
    OffsetTable& getOffsetTable() { return offsets; }

    // Notes the branch operands of the instruction at `position`, if it has any.
    void addBranchOperands(int position) {
        const OpCodeKind kind = ourOpCodes[oldCode[position]].kind;
        if (kind >= OPK_CONDITIONAL && kind <= OPK_LOOKUPSWITCH) {
            collectBranchOperands(oldCode, oldLength, position, offsets);
        }
    }
    // The code of the insertions of one of the two kinds of blocks; it must outlive this object.
    // With a switch in the code its length is a multiple of 4.
    void setBlock(int kind, const unsigned char* bytes, int length);
    // Notes an insertion at the instruction at `position`; gives its number. Of those in front of
    // an instruction only the first byte of it matters: instructionLength is 1.
    int addInsertion(int kind, int position, int instructionLength);
    // Turns the dup of a noted `new` into nops.
    void cancelDup(int insertion);
    // Turns a noted allocation call that relied on such a dup into nops.
    void cancelCall(int insertion);
    int getInsertionCount() const { return insertions.getSize(); }
    struct Insertion {
        int kind;
        int position; // of the instruction in the old code
        int length;   // of the instruction
    };
    // By rising position.
    const Insertion& getInsertion(int i) const { return insertions[i]; }

    // Length of the new code without a prefix.
    int getNewLength() const { return oldLength + added; }
    // Fills the map, with `prefix` bytes in front of everything, and corrects all operands. False
    // if a 16-bit one overflows; their instructions are in longJumps then, unless that is null.
    bool updateOffsets(int prefix, ZSet<int>* longJumps);
    // The new code with the prefix left free at its start and `suffix` bytes behind its end; it
    // lies in `target`. Call once, after updateOffsets.
    unsigned char* assemble(ClassArena& target, const References& references, int methodId,
                            int variable, int suffix = 0);
    // Where old positions lie in the new code.
    CodeOffsets getOffsets() const { return CodeOffsets(map, oldLength); }

private:
    struct Block {
        const unsigned char* bytes;
        int length;
    };
    static bool isBlock(int kind) { return kind == INSERT_BLOCK || kind == INSERT_BLOCK_BEHIND; }
    const Block& blockOf(int kind) const { return kind == INSERT_BLOCK ? inFront : behind; }
    int lengthOf(int kind) const;
    void fillMap(int from, int to, int shift);

    ClassArena& arena;
    const unsigned char* oldCode;
    int oldLength;
    const bool hasSwitch;
    const unsigned char* corrected; // the old code with its operands corrected
    int* map;                       // new position of every old one, and of the end
    int prefixLength;
    int added; // bytes inserted so far, without the prefix
    OffsetTable offsets;
    ArenaVector<Insertion> insertions;
    Block inFront;
    Block behind;
};

// Corrects every operand of the table in `code` for the map's new positions. A 16-bit operand that
// no longer fits: its instruction goes to longJumps and the result is false; with null longJumps
// the first one ends the walk.
bool updateAllOffsets(ZSet<int>* longJumps, OffsetTable& table, char* code, const int* map,
                      int length);
