#pragma once

#include "classfile/ClassFile.h"
#include "probes/ProbeDescriptor.h"

// The annotations of com.vandrik.probes, as they stand in the class file of a probe. A class that
// was compiled with them has them in the right shape; any other shape is an internal error.

// Appends the texts of @MethodPattern and sets the slashed name of @InstanceOf; both stay as they
// are if the class has no such annotation.
void fillMethodPatterns(ClassFile& classFile, ZVectorSafe<ZString>& patterns, ZString& instanceOf);

// Appends what the annotations of one parameter, counted from 0, ask for.
void fillCallbackParameters(ClassFile& classFile, MethodInfo* method, int parameter,
                            ZVector<CallbackParameter>& list);
