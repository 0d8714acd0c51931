#pragma once

#include "core/ground/Here.h"
#include "core/ground/ZString.h"

#include <jvmti.h>

// Checks of JVMTI results and small questions to the JVM.

// Nothing for JVMTI_ERROR_NONE. Any other code is an internal error that names the code and the
// place: it throws VDKRuntimeException.
void check_JVMTI_error_impl(jvmtiError error, const char* file, int line);

#define CHECK_JVMTI(error) check_JVMTI_error_impl((error), VDK_HERE)

// Frees memory that the JVM allocated for us. Null is allowed.
void deallocate(void* memory);

// Frees JVMTI memory at the end of a block.
template <typename T>
class JvmtiMemory {
public:
    JvmtiMemory() : memory(nullptr) {}
    ~JvmtiMemory();
    JvmtiMemory(const JvmtiMemory&) = delete;
    JvmtiMemory& operator=(const JvmtiMemory&) = delete;
    // Where a JVMTI function stores the pointer.
    T** receive() { return &memory; }
    T* get() const { return memory; }

private:
    T* memory;
};

// The system property, or an empty string when the JVM doesn't know it.
ZString getSystemProperty(const char* key);

// The JVMTI phase; -1 without an environment or when the call fails.
int getJVMTIPhase();

// Visits every object of the heap, tagged or not, in one safepoint. The callback runs on the VM
// thread: no JNI, no JVMTI, no lock that a Java thread may hold. JRockit takes the objects in two
// calls. A JVMTI failure is an internal error.
void iterateOverHeapEither(jvmtiEnv* jvmti, jvmtiHeapObjectCallback callback, void* data);

// Takes the tags of an environment off all objects, in one walk over the heap. The caller may hold
// ourLock: no handler of freed objects, which the JVM may call meanwhile, takes it.
void clearAllTags(jvmtiEnv* jvmti);

// The number as `digits` upper-case hexadecimal digits.
ZString toHexadecimal(unsigned long value, int digits);

// Implementation

// Frees without checking: for destructors, which must not throw.
void deallocateQuietly(void* memory) noexcept;

template <typename T>
JvmtiMemory<T>::~JvmtiMemory() {
    deallocateQuietly(memory);
}
