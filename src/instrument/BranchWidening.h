#pragma once

#include "classfile/ClassFile.h"
#include "core/ground/ZSet.h"

// Widening of 16-bit branches that inserted code has put out of reach of their targets.

// Whether branches of this body may be widened. The sequences hold code positions that need a frame
// which nobody can know without inferring types (the one behind an inverted branch, the padding
// behind a wide one), so a body that the JVM checks by frames keeps its branches.
bool canWidenBranches(const CodeAttribute* attribute);

// Rewrites the branches at the positions in longJumps to reach 32 bits far, with no other change to
// the method. False, and nothing changed, if the code would exceed 65535 bytes or another branch
// overflows. Position 0 can't be in a set of ints, so a branch there is an internal error.
bool modifyJumps(MethodInfo* method, ZSet<int>* longJumps);

// The inverse condition of a conditional branch; the wide form of goto and jsr.
int convertJump(int opcode);
