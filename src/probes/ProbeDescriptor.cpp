#include "probes/ProbeDescriptor.h"

#include "probes/SignatureUtil.h"

namespace {

const char J2EE_SUPPORT_PREFIX[] = "com/vandrik/probes/builtin/J2EESupport";

bool contains(const ZVectorSafe<ZString>& texts, const ZString& text) {
    for (int i = 0; i < texts.getSize(); i++) {
        if (texts[i] == text) {
            return true;
        }
    }
    return false;
}

} // namespace

ProbeDescriptor::ProbeDescriptor(
    const ZString& probeClassName, const ZString& enterDescriptor, const ZString& returnDescriptor,
    const ZString& exceptionDescriptor, ZVector<CallbackParameter>* enterParameters,
    ZVector<CallbackParameter>* returnParameters, ZVector<CallbackParameter>* exceptionParameters,
    bool enterResultUsed, bool valueReplaced, bool exceptionExt, const ZString& returnType,
    const ZString& instanceOf, const ZVectorSafe<ZString>& allExceptions)
    : isJ2EESupport(probeClassName.startsWith(J2EE_SUPPORT_PREFIX)), probeClass(probeClassName),
      instanceOfClass(instanceOf), callbackReturnType(returnType),
      onEnterParameters(enterParameters), onEnterDescriptor(enterDescriptor),
      onReturnParameters(returnParameters), onReturnDescriptor(returnDescriptor),
      onExceptionParameters(exceptionParameters), onExceptionDescriptor(exceptionDescriptor),
      status(PROBE_ADDED), replacesValue(valueReplaced), isExceptionExt(exceptionExt),
      usesOnEnterResult(enterResultUsed) {
    for (int i = 0; i < allExceptions.getSize(); i++) {
        if (!contains(exceptions, allExceptions[i])) {
            exceptions.push(allExceptions[i]);
        }
    }
}

ProbeDescriptor::~ProbeDescriptor() {
    delete onEnterParameters;
    delete onReturnParameters;
    delete onExceptionParameters;
}

void ProbeDescriptor::addMethodPattern(const ZString& classPattern, const ZString& methodPattern,
                                       const ZString& parameters, const ZString& returnType,
                                       const ZString& classAnnotation,
                                       const ZString& methodAnnotation) {
    classPatterns.push(classPattern);
    methodPatterns.push(methodPattern);
    parameterPatterns.push(parameters);
    returnTypePatterns.push(returnType);
    classAnnotationPatterns.push(className2signature(classAnnotation));
    methodAnnotationPatterns.push(className2signature(methodAnnotation));
}
