#pragma once

#include "classfile/OpCodes.h"
#include "instrument/AllocationSites.h"
#include "instrument/CallSet.h"
#include "instrument/HandlerHeads.h"
#include "instrument/LeaveOut.h"

// Inserts calls into a class. Those of tracing and allocation recording go to static methods of the
// class Callback, whose bodies are switched elsewhere; those of exceptions, which are there only
// while they are wanted, go to its natives.

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
    bool run(const ClassCalls& wanted);
    bool hasCatches() const { return anyCatches; }

private:
    // What walks over the code of a method found; it lies in the scratch arena.
    struct Scan {
        CodeTraits traits;
        const unsigned short* marks;
        int markCount;
        HandlerHeads handlers;
    };

    Scan scanMethod(CodeAttribute* attribute);
    CallSet callsOfMethod(MethodInfo* method, const ClassCalls& wanted) const;
    CallSet callsThatApply(MethodInfo* method, CallSet wanted, const Scan& scan) const;
    MethodOutcome instrumentMethod(int methodId, MethodInfo* method, CallSet wanted);
    MethodOutcome instrumentForTracingAndAllocationImpl(int methodId, MethodInfo* method,
                                                        const Scan& scan, CallSet calls,
                                                        ZSet<int>* overflows);
    void placeCalls(const Scan& scan, CallSet calls, CodeRewrite& rewrite, AllocationSites& sites);
    void placeHandlerCalls(const HandlerHeads::Head& head, CallSet calls, CodeRewrite& rewrite);
    void findReferences(CallSet calls);
    void commit(CodeRewrite& rewrite, CodeAttribute* attribute, AllocationSites* sites,
                unsigned char* newCode, int newLength, int prefix, int variable);
    MethodOutcome methodNotInstrumented(MethodInfo* method, MethodOutcome outcome) const;
    void logMethod(ZString text, const MethodInfo* method) const;
    void reportSkipped(MethodInfo* method, int skipped);

    ClassFile* classFile;
    MethodIds* ids;
    InstrumentationCounts* counts;
    bool flagged;
    bool anyCatches; // a method has the head of a `catch`
    bool anyChange;
    int callbackClass; // in the pool
    CodeRewrite::References references;
    StackEffects effects;
    AnnotatedMethods annotated;
    ClassArena scratch; // of the method at work
    ZSet<int> longJumps;
};

// The class pass: makes sure that the pool has the call references, then works through the methods.
// Gives whether any method was instrumented. hasCatches, if not null: whether a method that may
// carry calls has a `catch`.
bool instrumentForTracingAndAllocation(ClassFile* classFile, const ClassCalls& wanted,
                                       MethodIds* ids, bool flagVariants,
                                       InstrumentationCounts* counts, bool* hasCatches = nullptr);

// Trivial accessors, whose calls would cost far more than they tell.
bool shouldSkipInstrumentation(MethodInfo* method);
