#pragma once

#include "core/ground/NameBits.h"
#include "core/ground/ZString.h"
#include "core/ground/ZVector.h"

// What a callback's parameter receives. Each kind but the last has an annotation of its own.
enum CallbackParameterKind : int {
    CALLBACK_PARAM = 0,                  // the method's parameter of a number, counted from 1
    CALLBACK_PARAMS = 1,                 // all parameters in a new Object[], primitives boxed
    CALLBACK_THIS = 2,                   // the receiver; null in a static method
    CALLBACK_RETURN_VALUE = 3,           // the value being returned; onReturn only
    CALLBACK_THROWN_EXCEPTION = 4,       // the exception leaving the method
    CALLBACK_ON_ENTER_RESULT = 5,        // what onEnter returned for this call; not in onEnter
    CALLBACK_METHOD_NAME = 6,            // string constant
    CALLBACK_METHOD_SIGNATURE = 7,       // the JVM descriptor, string constant
    CALLBACK_METHOD_PARAMETER_TYPES = 8, // "(int, java.lang.String)", string constant
    CALLBACK_CLASS_REF = 9,              // the method's class, java.lang.Class constant
    CALLBACK_NO_KIND = 10                // an empty slot
};

struct CallbackParameter {
    CallbackParameterKind kind = CALLBACK_NO_KIND;
    int index = -1; // of CALLBACK_PARAM
};

// How far the classes have followed a change in the list of probes.
// NOLINTNEXTLINE(readability-identifier-naming): the name that the statuses go by
enum PROBE_STATUS : int {
    PROBE_IN_FORCE = 0, // woven into every class it applies to
    PROBE_ADDED = 1,    // loaded classes may still need weaving
    PROBE_REMOVED = 2   // its classes must be woven once more without it
};

// Where the JVM finds the class of a probe.
enum ProbeHome {
    PROBE_HOME_BOOT,  // by the boot loader
    PROBE_HOME_SYSTEM // by the loader of the application's class path
};

// ProbeDescriptor: what the agent knows of a probe: a class whose annotations name methods, and
// whose static callbacks are called from these. Made from the class file alone; the probe class is
// never run for it.
//
// Patterns stand in rows, one for each method pattern of the probe; row i of each of the six lists
// belongs together. Class names in patterns are dotted, annotations descriptors, all others
// slashed.
class ProbeDescriptor {
public:
    // Takes over the parameter lists; null for a callback that is absent, whose descriptor is then
    // empty. callbackReturnType: of the callback that replaces the method's value, or empty.
    // exceptions: of all callbacks; each is kept once.
    ProbeDescriptor(const ZString& probeClass, const ZString& onEnterDescriptor,
                    const ZString& onReturnDescriptor, const ZString& onExceptionDescriptor,
                    ZVector<CallbackParameter>* onEnterParameters,
                    ZVector<CallbackParameter>* onReturnParameters,
                    ZVector<CallbackParameter>* onExceptionParameters, bool usesOnEnterResult,
                    bool replacesValue, bool isExceptionExt, const ZString& callbackReturnType,
                    const ZString& instanceOfClass, const ZVectorSafe<ZString>& exceptions);
    ~ProbeDescriptor();
    ProbeDescriptor(const ProbeDescriptor&) = delete;
    ProbeDescriptor& operator=(const ProbeDescriptor&) = delete;

    // Appends a row. Annotations are dotted names; empty ones match everything.
    void addMethodPattern(const ZString& classPattern, const ZString& methodPattern,
                          const ZString& parameters, const ZString& returnType,
                          const ZString& classAnnotation, const ZString& methodAnnotation);
    int getPatternCount() const { return classPatterns.getSize(); }
    const ZString& getCallbackReturnType() const { return callbackReturnType; }

    ZVectorSafe<ZString> classPatterns;
    ZVectorSafe<ZString> methodPatterns;
    ZVectorSafe<ZString> parameterPatterns; // "(int, *)"
    ZVectorSafe<ZString> returnTypePatterns;
    ZVectorSafe<ZString> classAnnotationPatterns;
    ZVectorSafe<ZString> methodAnnotationPatterns;
    const bool isJ2EESupport; // woven in a pass of its own, and its methods are marked
    const ZString probeClass;
    const ZString instanceOfClass; // empty: objects of any class
    const ZString callbackReturnType;
    ZVectorSafe<ZString> exceptions;
    ZVector<CallbackParameter>* const onEnterParameters;
    const ZString onEnterDescriptor;
    ZVector<CallbackParameter>* const onReturnParameters;
    const ZString onReturnDescriptor;
    ZVector<CallbackParameter>* const onExceptionParameters;
    const ZString onExceptionDescriptor;
    PROBE_STATUS status;
    ProbeHome home = PROBE_HOME_BOOT;
    long serial = 0; // of its entry into the list; no other probe ever has it
    // Internal names of the classes that carry its calls, or did. ourLock, as the status.
    NameBits<1U << 14> woven;
    const bool replacesValue;  // onReturn returns what the method is to return
    const bool isExceptionExt; // the exception callback is onUncaughtExceptionExt
    const bool usesOnEnterResult;
};
