#include "instrument/ProbeWeaving.h"

#include "classfile/OpCodes.h"
#include "core/ground/WildcardMatch.h"
#include "instrument/ProbeCode.h"
#include "probes/SignatureUtil.h"

#include <iterator>

namespace {

// Whether objects of a class are ones that the probe is about.
enum InstanceAnswer { INSTANCES_NEVER, INSTANCES_ALWAYS, INSTANCES_AT_RUN_TIME };

InstanceAnswer answerInstanceOf(const ProbeDescriptor& descriptor, const ClassFile* classFile) {
    const ZString& wanted = descriptor.instanceOfClass;
    if (wanted.isEmpty()) {
        return INSTANCES_ALWAYS;
    }
    if (!classFile->hasSuperClass()) {
        return INSTANCES_NEVER;
    }
    const Utf8View super = classFile->getSuperClassSignature();
    if (classFile->getSignature() == wanted || super == wanted ||
        classFile->hasDirectInterface(Utf8View(wanted.c_str(), wanted.getLength()))) {
        return INSTANCES_ALWAYS;
    }
    return super == "java/lang/Object" && !classFile->hasInterfaces() ? INSTANCES_NEVER
                                                                      : INSTANCES_AT_RUN_TIME;
}

// Packages whose classes every class may link.
const char* const SEEN_BY_ALL[] = {"java/lang/", "java/io/",   "java/nio/",
                                   "java/net/",  "java/math/", "java/security/",
                                   "java/text/", "java/time/", "java/util/"};
// Of them those of other modules.
const char* const NOT_SEEN_BY_ALL[] = {"java/lang/instrument/", "java/lang/management/",
                                       "java/net/http/", "java/util/logging/", "java/util/prefs/"};

bool startsWithAny(const ZString& name, const char* const* begin, const char* const* end) {
    for (; begin != end; begin++) {
        if (name.startsWith(*begin)) {
            return true;
        }
    }
    return false;
}

bool isSeenByAll(const ZString& name) {
    return startsWithAny(name, std::begin(SEEN_BY_ALL), std::end(SEEN_BY_ALL)) &&
           !startsWithAny(name, std::begin(NOT_SEEN_BY_ALL), std::end(NOT_SEEN_BY_ALL));
}

// Whether a callback takes the object as what it is, so that the code names the type anyway.
bool isThisTyped(const ZVector<CallbackParameter>* parameters, const ZString& callbackDescriptor) {
    ZVectorSafe<ZString> types;
    ZString returnType;
    if (parameters != nullptr) {
        getSignatureTypes(Utf8View(callbackDescriptor.c_str(), callbackDescriptor.getLength()),
                          types, returnType);
    }
    for (int i = 0; i < types.getSize(); i++) {
        if ((*parameters)[i].kind == CALLBACK_THIS && types[i] != "Ljava/lang/Object;") {
            return true;
        }
    }
    return false;
}

bool isThisTyped(const ProbeDescriptor& descriptor) {
    return isThisTyped(descriptor.onEnterParameters, descriptor.onEnterDescriptor) ||
           isThisTyped(descriptor.onReturnParameters, descriptor.onReturnDescriptor) ||
           isThisTyped(descriptor.onExceptionParameters, descriptor.onExceptionDescriptor);
}

bool isTestedByName(const ProbeDescriptor& descriptor) {
    return !isSeenByAll(descriptor.instanceOfClass) && !isThisTyped(descriptor);
}

ZString dotted(const ZString& name) {
    ZString text = name;
    text.replaceAll('/', '.');
    return text;
}

int constantClass(ClassFile* classFile, const ZString& name) {
    return classFile->findOrCreateConstantClass(
        classFile->findOrCreateUtf8(Utf8View(name.c_str(), name.getLength())));
}

// One probe and one class.
class ClassWeaving {
public:
    ClassWeaving(const ProbeDescriptor& probe, const ZVector<int>& rows, ClassFile* owner,
                 WeavingHost* surroundings, InstrumentationCounts* outcomeCounts)
        : descriptor(probe), patternIndices(rows), classFile(owner), host(surroundings),
          counts(outcomeCounts), references(), haveReferences(false),
          effects(owner->getConstantPool()), annotated(owner) {}

    bool run() {
        const InstanceAnswer answer = answerInstanceOf(descriptor, classFile);
        if (answer == INSTANCES_NEVER || (answer == INSTANCES_AT_RUN_TIME && !mayBeTested())) {
            return false;
        }
        const char* const classLeft =
            reasonToLeaveClass(classFile->getSignature(), classFile->getSuperClassSignature());
        bool anyChange = false;
        for (int i = 0; i < classFile->getMethods().getSize(); i++) {
            MethodInfo* const method = classFile->getMethods()[i];
            if (method->getCodeAttribute() == nullptr || !isWanted(method)) {
                continue;
            }
            const char* const left =
                classLeft != nullptr ? classLeft : annotated.reasonToLeave(method);
            if (left != nullptr) {
                host->methodLeftOut(descriptor, method, left);
            }
            const MethodOutcome outcome = classLeft != nullptr ? METHOD_OUTCOME_CLASS_LEFT_OUT
                                          : left != nullptr
                                              ? METHOD_OUTCOME_ANNOTATED
                                              : weave(method, answer == INSTANCES_AT_RUN_TIME);
            if (counts != nullptr) {
                counts->methods[outcome]++;
            }
            anyChange = anyChange || outcome == METHOD_OUTCOME_INSTRUMENTED;
        }
        return anyChange;
    }

private:
    bool mayBeTested() {
        const ZString& type = descriptor.instanceOfClass;
        return isTestedByName(descriptor) ? host->mayHaveInstances(type)
                                          : host->findsInstanceOfClass(type);
    }

    bool isWanted(MethodInfo* method) {
        const Utf8View name = method->getName();
        const ZString returnType = method->getReturnType();
        const ZString& replaced = descriptor.getCallbackReturnType();
        if ((!replaced.isEmpty() && replaced != returnType) ||
            (!descriptor.instanceOfClass.isEmpty() && method->isStatic()) ||
            (!classFile->hasSuperClass() &&
             (name == "<init>" || name == "<clinit>" || name == "finalize"))) {
            return false;
        }
        return isAccepted(method, returnType) && declaresExceptions(method);
    }

    // Whether a row accepts the method.
    bool isAccepted(MethodInfo* method, const ZString& returnDescriptor) {
        const ZString name = method->getName();
        ZString returnType;
        ZString parameters;
        for (int i = 0; i < patternIndices.getSize(); i++) {
            const int row = patternIndices[i];
            if (!wildcardMatch(descriptor.methodPatterns[row].c_str(), name.c_str())) {
                continue;
            }
            // Most methods do not get here.
            if (parameters.isEmpty()) {
                returnType =
                    SignatureUtil::convertClassSignatureToFullName(returnDescriptor.c_str());
                parameters =
                    SignatureUtil::convertMethodSignatureToParameters(method->getDescriptor());
            }
            if (wildcardMatch(descriptor.parameterPatterns[row].c_str(), parameters.c_str()) &&
                wildcardMatch(descriptor.returnTypePatterns[row].c_str(), returnType.c_str()) &&
                host->hasMatchingAnnotation(method, descriptor.methodAnnotationPatterns[row])) {
                return true;
            }
        }
        return false;
    }

    // Woven code can't throw a checked exception that the method does not declare.
    bool declaresExceptions(MethodInfo* method) {
        if (descriptor.exceptions.isEmpty()) {
            return true;
        }
        ZVectorSafe<ZString> declared;
        method->fillExceptions(declared);
        for (int i = 0; i < descriptor.exceptions.getSize(); i++) {
            bool found = false;
            for (int k = 0; k < declared.getSize() && !found; k++) {
                found = declared[k] == descriptor.exceptions[i];
            }
            if (!found) {
                Logger::message(ZString("Warning: ") + dotted(classFile->getSignature()) + "." +
                                method->getName().toString() + " not instrumented by probe " +
                                dotted(descriptor.probeClass) +
                                " because probe callbacks throw exceptions non-thrown in the "
                                "method");
                return false;
            }
        }
        return true;
    }

    int callbackReference(const char* name, const ZString& callbackDescriptor) {
        if (callbackDescriptor.isEmpty()) {
            return -1;
        }
        return classFile->findOrCreateMethodRef(
            constantClass(classFile, descriptor.probeClass), classFile->findOrCreateUtf8(name),
            classFile->findOrCreateUtf8(
                Utf8View(callbackDescriptor.c_str(), callbackDescriptor.getLength())));
    }

    void findReferences(bool isTested) {
        if (haveReferences) {
            return;
        }
        haveReferences = true;
        references.onEnter = callbackReference("onEnter", descriptor.onEnterDescriptor);
        references.onReturn = callbackReference("onReturn", descriptor.onReturnDescriptor);
        references.onException = callbackReference(
            descriptor.isExceptionExt ? "onUncaughtExceptionExt" : "onUncaughtException",
            descriptor.onExceptionDescriptor);
        if (!isTested) {
            return;
        }
        const ZString& type = descriptor.instanceOfClass;
        if (!isTestedByName(descriptor)) {
            references.instanceOfClass = constantClass(classFile, type);
            return;
        }
        const ZString name = dotted(type);
        references.typeName =
            classFile->findOrCreateStringInfo(Utf8View(name.c_str(), name.getLength()));
        references.typeTest = classFile->findOrCreateMethodRef(
            constantClass(classFile, "com/vandrik/runtime/TypeNames"),
            classFile->findOrCreateUtf8("isInstance"),
            classFile->findOrCreateUtf8(TYPE_TEST_DESCRIPTOR));
    }

    MethodOutcome weave(MethodInfo* method, bool isTested) {
        findReferences(isTested);
        scratch.reset();
        const MethodOutcome outcome = instrumentMethodByProbeDescriptor(
            classFile, method, descriptor, references, effects, scratch);
        if (outcome == METHOD_OUTCOME_INSTRUMENTED && descriptor.isJ2EESupport) {
            host->methodHasProbe(
                classFile->getSignature(), method->getName(),
                SignatureUtil::convertMethodSignatureToParameters(method->getDescriptor()));
        }
        if (outcome != METHOD_OUTCOME_INSTRUMENTED) {
            Logger::detail(ZString("not woven by probe ") + dotted(descriptor.probeClass) + ": " +
                           classFile->getSignature().toString() + "." +
                           method->getName().toString() + method->getDescriptor().toString() +
                           ": " + methodOutcomeText(outcome));
        }
        return outcome;
    }

    const ProbeDescriptor& descriptor;
    const ZVector<int>& patternIndices;
    ClassFile* classFile;
    WeavingHost* host;
    InstrumentationCounts* counts;
    ProbeReferences references;
    bool haveReferences;
    StackEffects effects;
    AnnotatedMethods annotated;
    ClassArena scratch; // of the method at work
};

} // namespace

bool instrumentClassByProbeDescriptor(const ProbeDescriptor& descriptor,
                                      const ZVector<int>& patternIndices, ClassFile* classFile,
                                      WeavingHost* host, InstrumentationCounts* counts) {
    Logger::assertNotNULL(classFile, VDK_HERE);
    Logger::assertNotNULL(host, VDK_HERE);
    return ClassWeaving(descriptor, patternIndices, classFile, host, counts).run();
}

int getConstructorSuperOrThisCallOffset(ClassFile* classFile, const CodeAttribute* attribute) {
    const unsigned char* const code = attribute->getCode();
    const int length = attribute->getCodeLength();
    const ConstantPool& pool = classFile->getConstantPool();
    const auto isOurs = [&](int classIndex) {
        const Utf8View name = pool.getClassName(classIndex);
        return name == classFile->getSignature() || name == classFile->getSuperClassSignature();
    };
    int open = 0;
    for (int position = 0; position < length;) {
        const int next = nextInstruction(code, length, position);
        if (code[position] == OPC_NEW) {
            open += isOurs(readCodeUnsignedShort(code, position + 1)) ? 1 : 0;
        } else if (code[position] == OPC_INVOKESPECIAL) {
            const ConstantPool::Content member =
                pool.getContent(readCodeUnsignedShort(code, position + 1));
            if (member.tag == CONSTANT_METHOD_REF && isOurs(member.first) &&
                pool.getUtf8(pool.getContent(member.second).first) == "<init>") {
                if (open == 0) {
                    return next;
                }
                open--;
            }
        }
        position = next;
    }
    return -1;
}
