#pragma once

#include "classfile/ClassFile.h"

// LocalTypes: the types of the local variables in front of an instruction, for a frame there.
//
// DESCRIPTION
//   Moved to rising positions, it starts from the nearest frame and follows the stores since. What
//   a store of a reference leaves is not known: its variable counts as unusable, and isKnown tells.
//   Only for a body that has frames.
class LocalTypes {
public:
    // initEnd: behind the call of a constructor that makes `this` an object, -1 in other methods.
    LocalTypes(CodeAttribute* body, ClassArena& scratch, int initEnd);
    void moveTo(int position);
    bool isKnown() const { return known; }
    // For an instruction that handlers of the method cover: what these may rely on is true there,
    // so it stands for what is not known. False if that does not tell enough.
    bool takeFromHandlers(ArenaVector<CodeAttribute::ExceptionTableElement>& table);
    // Puts the types in the form that frames have.
    void fill(ArenaVector<VerificationType>& locals) const;

private:
    void readFrame(StackMapFrame* frame);
    bool takeFromHandler(const StackMapFrame* frame, ZVector<int>& taken);
    const StackMapFrame* frameAt(int offset) const;
    void store(int slot, VerificationType type);

    ArenaVector<StackMapFrame*>& frames;
    const unsigned char* code;
    const int length;
    const int slots;
    const int initEnd;
    VerificationType* types; // by slot; the second one of a wide value is top
    int position;
    int nextFrame;
    bool known;
};

// The variable that an instruction writes, if it does.
struct StoredLocal {
    int slot;            // -1: none
    VerificationTag tag; // VERIFICATION_OBJECT for any reference
    int getSlots() const { return tag == VERIFICATION_LONG || tag == VERIFICATION_DOUBLE ? 2 : 1; }
};
StoredLocal storedLocal(const unsigned char* code, int position);
