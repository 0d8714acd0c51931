#pragma once

#include <jvmti.h>
#include <stdint.h>

// CompiledCode: which method the machine code at an address belongs to, inlined ones included. The
// JVM tells what it compiles and drops while somebody listens; handlers of signals look up.
namespace CompiledCode {

// Code of a method, as the JVM's event brings it; compileInfo may be null.
void add(jmethodID method, const void* start, jint bytes, const void* compileInfo);
void remove(jmethodID method, const void* start);
// Code that belongs to no method: stubs, the interpreter.
void addOther(const void* start, jint bytes);
// Forgets everything. No handler may find code any more.
void clear();
// Frees the memory of code that is gone. To be called now and then, from no handler.
void collect();

// For handlers: no lock, no allocation.

// Methods of the instruction that was done last, the innermost one first, at most so many; 0 if the
// address, which is that of the next instruction to run, is in no method.
int methodsAt(uintptr_t pc, jmethodID* methods, int most);
// Whether the address and the instruction before it belong to the same compiled method.
bool isWithinMethod(uintptr_t pc);
// Whether the address lies where code of Java methods or the JVM's stubs are.
bool mayBeCode(uintptr_t pc);

} // namespace CompiledCode
