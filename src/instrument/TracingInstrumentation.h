#pragma once

#include "classfile/OpCodes.h"
#include "instrument/AllocationSites.h"
#include "instrument/HandlerHeads.h"
#include "instrument/LeaveOut.h"

// Inserts the tracing and allocation recording calls into a class. The calls go to static methods
// of the class Callback, whose bodies are switched elsewhere; what is inserted never changes again.

// Gives methods their ids. The agent's implementation is the method table of its database.
class MethodIds {
public:
    virtual ~MethodIds() = default;
    virtual int getMethodId(const Utf8View& className, const Utf8View& methodName,
                            const Utf8View& descriptor) = 0;
    // The method carries calls now.
    virtual void methodInstrumented(int id) = 0;
};

// The JVM does not compile methods longer than this, in bytes of code.
constexpr int HUGE_METHOD_LIMIT = 8000;

class TracingInstrumentation {
public:
    // Inserts calls into every method that can take them. flagVariants: call the methods that test
    // a static field (JVMs that can't redefine Callback). Counts may be null.
    TracingInstrumentation(ClassFile* classFile, MethodIds* ids, bool flagVariants,
                           InstrumentationCounts* counts);
    // Whether any method was instrumented.
    bool run(bool allocations, bool tracing);

private:
    // Which calls a method gets.
    struct Calls {
        bool tracing;     // at entry and exit
        bool handlers;    // at the head of exception handlers; only with tracing
        bool allocations; // at allocations
    };

    // What walks over the code of a method found; it lies in the scratch arena.
    struct Scan {
        CodeTraits traits;
        const unsigned short* marks;
        int markCount;
        HandlerHeads handlers;
    };

    Scan scanMethod(CodeAttribute* attribute);
    static bool dropACall(Calls* calls);
    MethodOutcome instrumentMethod(int methodId, MethodInfo* method, const Calls& wanted);
    MethodOutcome instrumentForTracingAndAllocationImpl(int methodId, MethodInfo* method,
                                                        const Scan& scan, const Calls& calls,
                                                        ZSet<int>* overflows);
    void placeCalls(const Scan& scan, const Calls& calls, CodeRewrite& rewrite,
                    AllocationSites& sites);
    int catchReference();
    void commit(CodeRewrite& rewrite, CodeAttribute* attribute, AllocationSites* sites,
                unsigned char* newCode, int newLength, int prefix, int variable);
    MethodOutcome methodNotInstrumented(MethodInfo* method, MethodOutcome outcome) const;
    void reportSkipped(MethodInfo* method, int skipped);

    ClassFile* classFile;
    MethodIds* ids;
    InstrumentationCounts* counts;
    bool flagged;
    int callbackClass; // in the pool
    CodeRewrite::References references;
    StackEffects effects;
    AnnotatedMethods annotated;
    ClassArena scratch; // of the method at work
    ZSet<int> longJumps;
};

// The class pass: makes sure that the pool has the call references, then works through the methods.
// Gives whether any method was instrumented.
bool instrumentForTracingAndAllocation(ClassFile* classFile, bool allocations, bool tracing,
                                       MethodIds* ids, bool flagVariants,
                                       InstrumentationCounts* counts);

// Trivial accessors, whose calls would cost far more than they tell.
bool shouldSkipInstrumentation(MethodInfo* method);
