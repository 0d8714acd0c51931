#pragma once

#include "instrument/ProbeWeaving.h"

#include <jni.h>

// ProbePasses: the passes of the load hook that weave probes into one class: first all but those of
// J2EE support, then, behind the tracing pass, these, so that their calls lie outside the tracing
// calls. Caller holds ourLock.
class ProbePasses final : private WeavingHost {
public:
    enum Pass { BEFORE_TRACING, BEHIND_TRACING };

    // The loader that defines the class; null is the boot loader. Without an env every class is
    // taken to be found. counts: may be null.
    ProbePasses(ClassFile* owner, JNIEnv* javaEnv, jobject definingLoader,
                InstrumentationCounts* outcomeCounts);
    // Whether any method was changed.
    bool weave(Pass pass);
    // For the class of a probe. Whether any callback was changed.
    bool guard();
    // The JVM has the rewritten class.
    void confirm();

private:
    bool weaveProbe(ProbeDescriptor* descriptor);
    void tellUnreached(const ProbeDescriptor& descriptor) const;
    bool findsInstanceOfClass(const ZString& wanted) override;
    bool mayHaveInstances(const ZString& wanted) override;
    void methodLeftOut(const ProbeDescriptor& descriptor, const MethodInfo* method,
                       const char* reason) override;
    bool hasMatchingAnnotation(MethodInfo* method, const ZString& pattern) override;
    void methodHasProbe(const ZString& className, const ZString& methodName,
                        const ZString& parameters) override;

    ClassFile* classFile;
    JNIEnv* env;
    jobject loader;
    InstrumentationCounts* counts;
    const ZString name; // internal
    ZString dotted;
    ZVector<int> marked; // rows of methods
};
