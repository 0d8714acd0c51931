#include "instrument/ProbePasses.h"

#include "db/DB.h"
#include "instrument/ClassBatches.h"
#include "instrument/ProbeReach.h"
#include "probes/Filter.h"
#include "probes/Probes.h"
#include "probes/SignatureUtil.h"
#include "profiling/threads/MethodLookup.h"

namespace {

// What the log was told, so that it is told once. ourLock.
constexpr int MOST_TOLD = 200;
ZVectorSafe<ZString>& ourToldTexts = *new ZVectorSafe<ZString>();

// Whether the boot loader has the package of a type; also where the JVM knows no modules.
bool isInBootModule(JNIEnv* env, const ZString& type) {
    const int end = type.lastIndexOf('/');
    jobject module = nullptr;
    if (end < 0 || ourJVMTI->GetNamedModule(nullptr, type.substring(0, end).c_str(), &module) !=
                       JVMTI_ERROR_NONE) {
        return true;
    }
    const bool isFound = module != nullptr;
    env->DeleteLocalRef(module);
    return isFound;
}

void tellOnce(const ZString& text, const ZString& more) {
    for (int i = 0; i < ourToldTexts.getSize(); i++) {
        if (ourToldTexts[i] == text) {
            return;
        }
    }
    if (ourToldTexts.getSize() < MOST_TOLD) {
        ourToldTexts.push(text);
        Logger::message(text + more);
    }
}

ZString beginOf(const ProbeDescriptor& descriptor) {
    ZString text = ZString("probe ") + descriptor.probeClass;
    text.replaceAll('/', '.');
    return text;
}

} // namespace

ProbePasses::ProbePasses(ClassFile* owner, JNIEnv* javaEnv, jobject definingLoader,
                         InstrumentationCounts* outcomeCounts)
    : classFile(owner), env(javaEnv), loader(definingLoader), counts(outcomeCounts),
      name(owner->getSignature().toString()), dotted(name) {
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

bool ProbePasses::guard() {
    for (int i = 0; i < Probes::ourProbeDescriptors.getSize(); i++) {
        if (Probes::ourProbeDescriptors[i]->probeClass == name) {
            return guardCallbacks(*Probes::ourProbeDescriptors[i], classFile);
        }
    }
    return false;
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
    if (rows.isEmpty()) {
        return false;
    }
    if (!loaderFindsProbe(env, loader, *descriptor)) {
        tellUnreached(*descriptor);
        return false;
    }
    if (!instrumentClassByProbeDescriptor(*descriptor, rows, classFile, this, counts)) {
        return false;
    }
    descriptor->woven.add(name);
    return true;
}

// Once for each probe and class of loaders.
void ProbePasses::tellUnreached(const ProbeDescriptor& descriptor) const {
    ZString loaderName("the boot loader");
    if (loader != nullptr) {
        jclass type = env->GetObjectClass(loader);
        loaderName = dottedNameOf(type);
        env->DeleteLocalRef(type);
    }
    ZString text = beginOf(descriptor);
    text.append(" is not woven into classes of ");
    text.append(loaderName);
    text.append(", which does not find the class of the probe");
    if (descriptor.home == PROBE_HOME_SYSTEM) {
        text.append(" on the application's class path; probebootclasspath= makes it known to all");
    }
    tellOnce(text, ZString(" (") + dotted + ")");
}

// The user may well have named the method.
void ProbePasses::methodLeftOut(const ProbeDescriptor& descriptor, const MethodInfo* method,
                                const char* reason) {
    tellOnce(beginOf(descriptor) + " is not woven into " + dotted + "." +
                 method->getName().toString() + ": " + reason,
             "");
}

bool ProbePasses::findsInstanceOfClass(const ZString& wanted) {
    return ::findsInstanceOfClass(env, loader, *classFile, wanted);
}

// Of a class of the boot loader no type is that only other loaders have.
bool ProbePasses::mayHaveInstances(const ZString& wanted) {
    return loader != nullptr || env == nullptr || isInBootModule(env, wanted) ||
           findsInstanceOfClass(wanted);
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
            Filter::applyFilters(marked[i]);
        }
    }
}
