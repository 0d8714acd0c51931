#pragma once

#include "classfile/ClassFile.h"
#include "probes/ProbeCreationResult.h"
#include "probes/ProbeDescriptor.h"

// What the parameters of a callback receive, by their annotations; every one that breaks a rule
// leaves an error in the result. The caller owns the list. Null if there is no callback, or the
// result is not OK.
//
// onEnter: of the same probe, if it is not the callback itself. thisType: slashed class of all
// @This parameters; an empty one takes the type of the first that comes. isInstanceOf: the probe is
// for instances of that class, and @This parameters are plain objects.
ZVector<CallbackParameter>* createCallbackParameters(ClassFile& probeClass, MethodInfo* callback,
                                                     const MethodInfo* onEnter, ZString& thisType,
                                                     bool isInstanceOf,
                                                     ProbeCreationResult* result);
