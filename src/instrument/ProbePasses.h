#pragma once

#include "instrument/ProbeWeaving.h"

// ProbePasses: the passes of the load hook that weave probes into one class: first all but those of
// J2EE support, then, behind the tracing pass, these, so that their calls lie outside the tracing
// calls. Caller holds ourLock.
class ProbePasses final : private WeavingHost {
public:
    enum Pass { BEFORE_TRACING, BEHIND_TRACING };

    // counts: may be null.
    ProbePasses(ClassFile* owner, InstrumentationCounts* outcomeCounts);
    // Whether any method was changed.
    bool weave(Pass pass);
    // The JVM has the rewritten class.
    void confirm();

private:
    bool weaveProbe(ProbeDescriptor* descriptor);
    bool hasMatchingAnnotation(MethodInfo* method, const ZString& pattern) override;
    void methodHasProbe(const ZString& className, const ZString& methodName,
                        const ZString& parameters) override;

    ClassFile* classFile;
    InstrumentationCounts* counts;
    const ZString name; // internal
    ZString dotted;
    ZVector<int> marked; // rows of methods
};
