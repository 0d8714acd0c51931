#pragma once

#include "core/ground/ZString.h"

#include <jni.h>

// Generations marks objects by the period in which they were created. The mark is the high word of
// an object's tag in ourJVMTI, a row of `generation`; the low word is its allocator row. An object
// belongs to the first generation that is opened after its birth.
class Generations {
public:
    // Row of the current generation, 0 before the first.
    static int getCurrentGenerationID();

    // Opens a generation. Tagging every object of the heap pauses the JVM and costs native memory
    // for each; without it the objects stay untagged until the next generation or snapshot. Caller
    // holds ourLock.
    static void advanceGeneration(JNIEnv* env, const ZString& description, bool tagObjects = true);
};
