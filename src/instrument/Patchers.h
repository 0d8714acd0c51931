#pragma once

#include "core/ground/ZVector.h"

// Changes to the class Callback that switch the inserted calls on. Each takes the class and gives
// it with other bodies, so they can be chained; input is not empty, output is.

// vdkMethodEntry, vdkMethodExit and vdkMethodCatch call their natives; the first two by the
// variants that keep calls, if wanted.
void patchCallbackToEnableTracing(ZVector<unsigned char>& input, ZVector<unsigned char>& output,
                                  bool keepCalls = false);
// vdkInit calls its native.
void patchCallbackToEnableAllocations(ZVector<unsigned char>& input,
                                      ZVector<unsigned char>& output);
