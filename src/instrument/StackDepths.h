#pragma once

#include "instrument/AllocationSites.h"

// StackDepths: how many slots of the operand stack are in use in front of an instruction, so that
// inserted code asks for no more stack than it needs: compilers inline by that number.
//
// DESCRIPTION
//   Asked for rising positions, it walks from the nearest frame. Depths are known where the frames
//   of the class are binding, from version 51 on, and only there; and not behind an unconditional
//   branch that no frame follows.
class StackDepths {
public:
    static constexpr int UNKNOWN = -1;
    StackDepths(ClassFile* owner, CodeAttribute* body, StackEffects& stackEffects);
    // The depth in front of the instruction at `position`, or UNKNOWN.
    int at(int position);

private:
    void step();
    void nextFrame();
    void skipTypes(int count, int* slots);

    StackEffects& effects;
    const unsigned char* code;
    const int length;
    int position;
    int depth;
    // Frames to come, as bytes or, once they are decoded, as objects.
    DataInput raw;
    int rawCount;
    const ArenaVector<StackMapFrame*>* frames;
    int nextIndex;
    int frameOffset; // of the next frame, the code's length behind the last one
    int frameDepth;
};

// The stack that a body needs with all that is inserted; `dups` slots of it are taken by our dups
// at most.
int stackNeeded(const CodeRewrite& rewrite, int maxStack, int dups, StackDepths& depths);
