#pragma once

#include "classfile/ClassFile.h"

// What gets no inserted calls, and why. The first table of LeaveOut.cpp holds classes by name, the
// second methods by annotation.

// Why a method carries no calls. INSTRUMENTED is the good end.
enum MethodOutcome : int {
    METHOD_OUTCOME_INSTRUMENTED,
    METHOD_OUTCOME_WITHOUT_ALLOCATIONS, // with them it would be too long, or its frames too large
    METHOD_OUTCOME_WITHOUT_HANDLERS,    // nor calls at its exception handlers, for the same reason
    METHOD_OUTCOME_NO_CODE,             // abstract or native
    METHOD_OUTCOME_TRIVIAL,             // accessor: the call would cost more than it tells
    METHOD_OUTCOME_CLASS_LEFT_OUT,
    METHOD_OUTCOME_ANNOTATED,
    METHOD_OUTCOME_TOO_LONG,         // 65535 bytes of code would not do
    METHOD_OUTCOME_NEVER_COMPILED,   // the JVM would stop compiling it
    METHOD_OUTCOME_BRANCH_OVERFLOW,  // a branch would not reach, and widening it is not possible
    METHOD_OUTCOME_LIMITS,           // no room in max_stack or max_locals
    METHOD_OUTCOME_OPAQUE_ATTRIBUTE, // an attribute of its code may hold positions we don't know
    METHOD_OUTCOME_UNKNOWN_TYPES, // of locals or the stack where inserted code branches or returns
    METHOD_OUTCOME_COUNT
};
const char* methodOutcomeText(MethodOutcome outcome);

// How the methods of the classes seen so far ended.
struct InstrumentationCounts {
    long methods[METHOD_OUTCOME_COUNT];
    long skippedAllocations;
    long wrappedNatives;
    long leftNatives;
    // "methods: instrumented 12, ...; natives wrapped 3, left 4; allocations skipped 5"
    ZString toString() const;
};

// The reason why no method of this class gets calls, or null. Names are in internal form.
const char* reasonToLeaveClass(const Utf8View& className, const Utf8View& superName);

// Whether this is the method that boxes a primitive. Its annotation keeps calls at entry and exit
// out; where it allocates, compiled callers run its own body.
bool isBoxing(const Utf8View& className, const Utf8View& methodName);

// Tells methods of one class that are left out by annotation. Costs a few pool look-ups for a class
// that has none.
class AnnotatedMethods {
public:
    explicit AnnotatedMethods(ClassFile* owner);
    // The reason why the method gets no calls, or null.
    const char* reasonToLeave(MethodInfo* method) const;

private:
    bool hasAnnotation(MethodInfo* method, int nameIndex) const;

    static constexpr int MAX_ROWS = 8;
    ClassFile* classFile;
    int nameIndices[MAX_ROWS]; // Utf8 of each row's annotation, 0 if the class does not name it
    int forceInline;
    bool any;
};
