#pragma once

#include "classfile/ClassFile.h"
#include "instrument/CodeRewrite.h"

// How one `new` stands whose constructor call has not been seen yet.
enum NewInstructionKind : int {
    NEW_WITH_DUP = 0,    // the program duplicates the reference
    NEW_WITHOUT_DUP = 1, // it does not; the engine inserts a dup
    NEW_CANCELLED = 2    // the inserted dup would disturb the stack; no call for the object
};

// Slots that the member references of one pool move, worked out once each.
class StackEffects {
public:
    explicit StackEffects(ConstantPool& constantPool);
    // Whether the member that the instruction names, if it does, is one whose effect can be told.
    bool canTell(const unsigned char* code, int position) const;
    // Slots that the instruction at `position` pops and pushes.
    void get(const unsigned char* code, int position, int* pops, int* pushes);

private:
    // Parameter slots and result slots of the descriptor at this member reference.
    struct Effect {
        short parameters;
        short result;
    };
    const Effect& effectOf(int index);

    ConstantPool& pool;
    Effect* effects; // parameters -1 where nobody asked yet; null before the first question
    int count;
};

// AllocationSites: pairs each `new` of a method with its constructor call while the code is walked,
// and notes the allocation calls.
//
// DESCRIPTION
//   An object can be recorded only once its constructor has run, and only if a second reference to
//   it lies on top of the stack then. The walk follows the depth of the operand stack: the
//   reference of a pending `new` is known to be where it was as long as no instruction has reached
//   down to it. Whatever can't be followed is not recorded; the method stays valid.
// IMPLEMENTATION
//   Depths come from the frames where there are some, otherwise from the forward branches seen.
//   Only differences of depths matter, so code of unknown depth may count from 0, with nothing
//   pending. A dup of our own must be in every frame between the `new` and the constructor call:
//   such frames get a second uninitialized entry when the rewrite is committed.
class AllocationSites {
public:
    AllocationSites(ClassFile* owner, CodeAttribute* body, CodeRewrite& rewriting,
                    StackEffects& stackEffects, bool recording);

    // Without `recording` nothing may be called but the getters and patchFrames.

    // To be called for every instruction, in order, before its operands are noted.
    void visit(int position, int next);
    // After the last one: cancels the dups that a frame elsewhere still knows.
    void finish();
    // Once the rewrite is certain, before code positions move: enters our dups in the frames.
    void patchFrames();
    // Allocations that could not be followed.
    int getSkipped() const { return skipped; }
    // Most slots that our dups take at once.
    int getExtraStack() const { return extraStack; }

private:
    struct Pending {
        int position;
        NewInstructionKind kind;
        int slot;      // depth below the lower reference of the program
        int guard;     // no instruction may reach below this depth
        int insertion; // of our dup, -1 if there is none
        int pattern;   // instructions ahead that bring the copies into place
        int firstTarget;
        int lastTarget;
    };
    // What is known of a position without a frame that a branch leads to.
    struct Label {
        int depth;
        int source; // of the first branch seen
        int epoch;  // 0 where no branch was seen, -1 for an exception handler
    };
    // A constructor call that relies on our dup.
    struct OwnDup {
        int position;
        int constructor;
        int insertion;
        int call;
        bool cancelled;
    };

    void enterPosition(int position);
    void enterLabel(int position);
    void checkFrame(const StackMapFrame& frame);
    static bool holdsNew(const StackMapFrame& frame, int slot, int position);
    void visitNew(int position);
    int byteAt(int position) const;
    bool visitConstructorCall(int position, int low);
    void dropPendingAbove(int low);
    void dropAll();
    void drop(const Pending& pending);
    void noteBranches(int position);
    void noteTarget(int position, int target, int targetDepth);
    bool callsConstructor(int position) const;
    bool namesMethod(int position);

    ClassFile* classFile;
    CodeAttribute* attribute;
    CodeRewrite& rewrite;
    StackEffects& effects;
    const unsigned char* code;
    const int length;
    ArenaVector<StackMapFrame*>* frames; // null when the body has none
    int nextFrame;
    Label* labels; // a position each; null when there are frames
    int depth;
    int epoch; // depths of different epochs can't be compared
    int lastEpoch;
    bool reachable;
    ArenaVector<Pending> pending;
    ArenaVector<OwnDup> ownDups;
    int ownPending;
    int extraStack;
    int skipped;
};
