#pragma once

#include <jni.h>

// WallTimeWalk: the elapsed time of methods that are measured in wall time, beside a sampler that
// sees only threads that run. A pass asks for the stacks of those threads that have run since the
// pass before; the others stand where they stood.
namespace WallTimeWalk {

// One pass, if it is time for one. Not to be called with ourLock held.
void walkIfDue(JNIEnv* env);
// Forgets where threads stood.
void restart();

} // namespace WallTimeWalk
