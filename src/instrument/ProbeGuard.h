#pragma once

#include <jni.h>

// ProbeGuard: the threads that are in a callback of a probe.
//
// DESCRIPTION
//   Callbacks are ordinary code: what they call may run woven methods. A thread that is in a
//   callback gets no further ones, or a probe of java.io that prints would never end.
// IMPLEMENTATION
//   A thread, virtual or not, is told by its number, since a virtual one may be moved to another
//   carrier while it is in a callback. The numbers stand in buckets of one cache line each, without
//   a lock: each thread enters and removes its own alone. A thread that finds its bucket full is
//   not guarded.

// Before any callback runs.
void prepareProbeGuard(JNIEnv* env);
