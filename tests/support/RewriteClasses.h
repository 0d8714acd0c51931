#pragma once

#include "instrument/TracingInstrumentation.h"

#include <string>

// Rewrites classes offline, for tests and benchmarks.

// Ids by counting.
class CountingIds : public MethodIds {
public:
    int getMethodId(const Utf8View&, const Utf8View&, const Utf8View&) override { return ++last; }
    void methodInstrumented(int) override { instrumented++; }
    int last = 0;
    int instrumented = 0;
};

// The class with all calls inserted; empty if no pass changed it. Throws VDKRuntimeException.
std::string rewriteClass(const void* bytes, int length, bool allocations, bool tracing,
                         MethodIds* ids, InstrumentationCounts* counts);
// The same with calls of these kinds.
std::string rewriteClass(const void* bytes, int length, CallSet wanted, MethodIds* ids,
                         InstrumentationCounts* counts);
