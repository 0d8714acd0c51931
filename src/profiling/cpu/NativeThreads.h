#pragma once

#include "core/ground/ZVector.h"

#include <jvmti.h>

// NativeThreads: the kernel's ids of threads that began before the agent. The JVM tells a thread's
// CPU time but not its id; the kernel tells that time, to the nanosecond, by id. A thread's id is
// the one whose clock agrees, if it is the only one; for those that wait and have the same time, it
// shows when they have worked.
namespace NativeThreads {

// What finding them takes; false if the JVM does not tell CPU times.
bool prepare();

struct Search {
    jobject thread = nullptr;
    long nativeID = 0; // 0 as long as it is not known
};
// Looks for the ids among those of this process but the known ones.
void find(ZVector<Search>* threads, const ZVector<long>& known);

} // namespace NativeThreads
