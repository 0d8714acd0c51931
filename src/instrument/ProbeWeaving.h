#pragma once

#include "instrument/AllocationSites.h"
#include "instrument/LeaveOut.h"
#include "probes/ProbeDescriptor.h"

// Weaves the calls of a probe's callbacks into the methods that its patterns name.
//
// DESCRIPTION
//   What a callback asks for is loaded in the method itself, so a callback is an ordinary call of a
//   static method. onEnter stands at the start, onReturn in front of each return, the exception
//   callback in a catch-all handler behind the code. Probes are woven one after the other; each
//   sees the code as the one before left it.
//   A method that can't take the calls stays as it was: classes and annotated methods of LeaveOut,
//   code that would be too long, and code whose frames don't tell the types that inserted code
//   needs.
// IMPLEMENTATION
//   The blocks are generated first, with the slots that new variables will have; then CodeRewrite
//   places them. The method is touched only when the whole result is known to work out.

// What the weaver asks of its surroundings.
class WeavingHost {
public:
    virtual ~WeavingHost() = default;
    // Whether an annotation of the method matches the pattern; an empty one matches every method.
    virtual bool hasMatchingAnnotation(MethodInfo* method, const ZString& pattern) = 0;
    // Whether the class that is woven finds the one whose instances a probe is about. Else there is
    // nothing to test for.
    virtual bool findsInstanceOfClass(const ZString&) { return true; }
    // Whether objects of the class, or of one derived from it, may be of a type that is compared by
    // its name.
    virtual bool mayHaveInstances(const ZString&) { return true; }
    // A row names a method that gets no calls, for a reason of LeaveOut.
    virtual void methodLeftOut(const ProbeDescriptor&, const MethodInfo*, const char*) {}
    // A method carries calls of a probe whose methods are marked (isJ2EESupport). Slashed class
    // name, parameters as in "(int, java.lang.String)".
    virtual void methodHasProbe(const ZString& className, const ZString& methodName,
                                const ZString& parameters) = 0;
};

// patternIndices: the rows of the descriptor whose class patterns and class annotations accept this
// class. Counts may be null; they get the methods that a row accepted. Gives whether any method
// was changed.
bool instrumentClassByProbeDescriptor(const ProbeDescriptor& descriptor,
                                      const ZVector<int>& patternIndices, ClassFile* classFile,
                                      WeavingHost* host, InstrumentationCounts* counts);

// References into the class's pool: -1 where there is no such callback.
struct ProbeReferences {
    int onEnter = -1;
    int onReturn = -1;
    int onException = -1;
    // -1 where no test is needed at run time, and where it goes by the name.
    int instanceOfClass = -1;
    // The type's name and the method that compares it, -1 where no such test is needed: for a type
    // that not every class sees. To link it might fail in a class that has nothing to do with it.
    int typeName = -1;
    int typeTest = -1;
    // For the guard of a callback; the others are -1 then.
    int currentThread = -1;
    int guardEnter = -1;
    int guardExit = -1;
    bool areTested() const { return instanceOfClass >= 0 || typeTest >= 0; }
    bool isGuard() const { return guardEnter >= 0; }
};
MethodOutcome instrumentMethodByProbeDescriptor(ClassFile* classFile, MethodInfo* method,
                                                const ProbeDescriptor& descriptor,
                                                const ProbeReferences& references,
                                                StackEffects& effects, ClassArena& scratch);

// Gives the callbacks of a probe, whose class this is, a beginning and an end: what one calls may
// run woven methods, and their callbacks, the same ones among them, are not delivered to a thread
// that is in a callback already. A callback that calls nothing stays as it is, and so does one that
// can't tell what the method is to return then. Whether any was changed.
bool guardCallbacks(const ProbeDescriptor& descriptor, ClassFile* classFile);

// Behind the call of super(...) or this(...) in the code of a constructor, or -1.
int getConstructorSuperOrThisCallOffset(ClassFile* classFile, const CodeAttribute* code);
