#pragma once

#include "classfile/ClassFile.h"

// What a method has to fit before local variables are added to it.

// Local variable slots of the receiver and the parameters.
int argumentSlots(const MethodInfo* method);

// Whether all frames, which are decoded for new variables and filled up to there, and `more` of
// them take a bearable amount of memory.
bool framesFitMemory(const CodeAttribute* attribute, int more = 0);
