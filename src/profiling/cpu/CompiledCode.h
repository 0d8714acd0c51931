#pragma once

#include "profiling/cpu/CodeShape.h"
#include "profiling/cpu/InterruptedStack.h"

#include <jvmti.h>
#include <stdint.h>

// CompiledCode: which method the machine code at an address belongs to, inlined ones included. The
// JVM tells what it compiles and drops while somebody listens; handlers of signals look up.
namespace CompiledCode {

// Code of a method, as the JVM's event brings it; compileInfo may be null. The code of a native
// method is what calls it.
void add(jmethodID method, bool isNative, const void* start, jint bytes, const void* compileInfo);
void remove(jmethodID method, const void* start);
// Code that belongs to no method: a stub, a part of the interpreter.
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

enum Kind { UNKNOWN, METHOD, NATIVE_METHOD, STUB };
// One frame of the machine, and the frames of Java in it.
struct Frame {
    Kind kind = UNKNOWN; // a native method's is the code that calls it
    int count = 0;       // of Java's, the innermost first; 0 if they are not known for certain
    int words = 0;       // of the machine's, with the return address; 0 if unknown
    CodeShape::State state = CodeShape::ALL;
};

// Write at most so many frames.

// Of a call that returns to the address.
Frame callAt(uintptr_t pc, CallFrame* frames, int most);
// Where a thread was interrupted, or of a call of a stub that the JVM knows nothing of.
Frame interruptedAt(uintptr_t pc, CallFrame* frames, int most);
// Whether the instruction before the address calls the stub that the other one is in.
bool isCallOfStub(uintptr_t pc, uintptr_t inStub);
// Another number since code was added or removed.
unsigned getChanges();

} // namespace CompiledCode
