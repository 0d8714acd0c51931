#pragma once

#include <jvmti.h>
#include <stdint.h>

// InterpretedMethods: handles of methods by the JVM's own structures of them, which are what frames
// of the interpreter name. Learned from stacks that the JVM walked; handlers of signals look up.
namespace InterpretedMethods {

// False where the JVM does not tell how its structures are laid out.
bool prepare();
// Not for handlers.
void learn(JNIEnv* env, jmethodID method);
// Forgets all of them.
void clear();

// For handlers: no lock, no allocation. The handle of the method of a frame of the interpreter and
// the place in its bytecode, -1 in native ones; null if the method is not known.
jmethodID find(uintptr_t jvmMethod, uintptr_t instruction, jint* position);

} // namespace InterpretedMethods
