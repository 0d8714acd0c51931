#pragma once

#include <jvmti.h>

// Visits every object of the heap, tagged or not, in one safepoint. The callback runs on the VM
// thread: no JNI, no JVMTI, no lock that a Java thread may hold. JRockit takes the objects in two
// calls. A JVMTI failure is an internal error.
void iterateOverHeapEither(jvmtiEnv* jvmti, jvmtiHeapObjectCallback callback, void* data);
