#include "instrument/ProbePasses.h"

#include "db/DB.h"
#include "probes/Filter.h"
#include "probes/Probes.h"
#include "probes/SignatureUtil.h"
#include "profiling/threads/MethodLookup.h"

ProbePasses::ProbePasses(ClassFile* owner, InstrumentationCounts* outcomeCounts)
    : classFile(owner), counts(outcomeCounts), name(owner->getSignature().toString()),
      dotted(name) {
    dotted.replaceAll('/', '.');
}

bool ProbePasses::weave(Pass pass) {
    bool changed = false;
    for (int i = 0; i < Probes::ourProbeDescriptors.getSize(); i++) {
        ProbeDescriptor* const descriptor = Probes::ourProbeDescriptors[i];
        if (descriptor->isJ2EESupport == (pass == BEHIND_TRACING) &&
            descriptor->status != PROBE_REMOVED && descriptor->probeClass != name) {
            changed = weaveProbe(descriptor) || changed;
        }
    }
    return changed;
}

bool ProbePasses::weaveProbe(ProbeDescriptor* descriptor) {
    ZVector<int> applicable;
    Probes::fillApplicableRows(*descriptor, dotted, applicable);
    ZVector<int> rows;
    for (int i = 0; i < applicable.getSize(); i++) {
        if (classFile->hasMatchingAnnotation(descriptor->classAnnotationPatterns[applicable[i]])) {
            rows.push(applicable[i]);
        }
    }
    if (rows.isEmpty() ||
        !instrumentClassByProbeDescriptor(*descriptor, rows, classFile, this, counts)) {
        return false;
    }
    descriptor->woven.add(name);
    return true;
}

bool ProbePasses::hasMatchingAnnotation(MethodInfo* method, const ZString& pattern) {
    return method->hasMatchingAnnotation(pattern);
}

void ProbePasses::methodHasProbe(const ZString& className, const ZString& methodName,
                                 const ZString& parameters) {
    const ZString fullName =
        SignatureUtil::convertClassSignatureToFullName((ZString("L") + className + ";").c_str());
    marked.push(ZMethod::getByName(fullName.c_str(), methodName.c_str(), parameters.c_str()));
}

void ProbePasses::confirm() {
    for (int i = 0; i < marked.getSize(); i++) {
        MethodRecord* const row = ourDB->methodTable->getRecord(marked[i], true);
        if ((row->flags & METHOD_HAS_PROBE) == 0) {
            __atomic_store_n(&row->flags, row->flags | METHOD_HAS_PROBE, __ATOMIC_RELAXED);
            row->stamp = ourDB->currentStamp;
            // It is never filtered from now on.
            Filter::applyFilters(row);
        }
    }
}
