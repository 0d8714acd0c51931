#pragma once

#include "classfile/ConstantPool.h"

// The kinds of code that the agent puts into classes.
enum CallKind : unsigned {
    CALLS_TRACING = 1U << 0,     // at entry and exit
    CALLS_HANDLERS = 1U << 1,    // at the heads of exception handlers, for tracing
    CALLS_ALLOCATIONS = 1U << 2, // behind allocations
    CALLS_BOXING = 1U << 3,      // behind those of the methods that box, which carry no other call
    CALLS_CREATED = 1U << 4,     // at the end of the constructors of Throwable
    CALLS_CAUGHT = 1U << 5,      // at the heads of `catch` blocks
    CALLS_NATIVES = 1U << 6,     // wrappers around natives, for the others to stand in
    CALLS_LOADERS = 1U << 7,     // the beginning of loadClass that lets the others find the agent
    CALLS_PROBES = 1U << 8,      // callbacks of probes
    CALLS_GUARDS = 1U << 9,      // in the callbacks, against callbacks within callbacks
};

// A set of them.
class CallSet {
public:
    constexpr CallSet() : kinds(0) {}
    constexpr CallSet(unsigned bits) : kinds(bits) {} // NOLINT(google-explicit-constructor)

    constexpr bool isEmpty() const { return kinds == 0; }
    constexpr bool has(CallSet some) const { return (kinds & some.kinds) != 0; }
    constexpr CallSet with(CallSet more) const { return CallSet(kinds | more.kinds); }
    constexpr CallSet only(CallSet some) const { return CallSet(kinds & some.kinds); }
    constexpr CallSet without(CallSet some) const { return CallSet(kinds & ~some.kinds); }
    constexpr unsigned toBits() const { return kinds; }

private:
    unsigned kinds;
};

// What was always inserted where it applies, whatever runs.
constexpr CallSet TRACING_CALLS(CALLS_TRACING | CALLS_HANDLERS);
constexpr CallSet ALLOCATION_CALLS(CALLS_ALLOCATIONS | CALLS_BOXING);
// What counts exceptions where the JVM sends no events of them.
constexpr CallSet EXCEPTION_CALLS(CALLS_CREATED | CALLS_CAUGHT);
// What stands in the bodies of methods and names the agent.
constexpr CallSet BODY_CALLS = TRACING_CALLS.with(ALLOCATION_CALLS).with(EXCEPTION_CALLS);

// What one class is to carry.
struct ClassCalls {
    CallSet calls;
    const char* leftOut = nullptr; // why there are none in its bodies although some were wanted
};

// The class whose constructors every exception runs. Internal name.
bool isRootOfExceptions(const Utf8View& className);

// Those of the wanted kinds that a class can carry, as far as its names tell. Internal names.
ClassCalls callsOfClass(CallSet wanted, const Utf8View& className, const Utf8View& superName);
