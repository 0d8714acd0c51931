#include "probes/CallbackParameters.h"

#include "probes/ProbeAnnotations.h"

namespace {

const char OBJECT_CLASS[] = "java/lang/Object";

// Checks the parameters of one callback, one after the other.
class ParameterRules {
public:
    ParameterRules(const Utf8View& callback, const MethodInfo* enter, ZString& thisClass,
                   bool instanceOf)
        : isOnEnter(callback == "onEnter"), isOnReturn(callback == "onReturn"),
          isOnException(callback == "onUncaughtException" || callback == "onUncaughtExceptionExt"),
          isInstanceOf(instanceOf), onEnter(enter), thisType(thisClass) {
        Logger::assertTrue(isOnEnter || isOnReturn || isOnException, VDK_HERE);
    }

    // Keeps the parameter, or gives the rule that it breaks.
    const char* add(const ZVector<CallbackParameter>& annotations, const ZString& type) {
        if (annotations.isEmpty()) {
            return "parameter must be annotated";
        }
        if (annotations.getSize() > 1) {
            return "more than 1 callback annotation";
        }
        const char* const broken = check(annotations[0], type);
        if (broken == nullptr) {
            accepted.push(annotations[0]);
        }
        return broken;
    }

    const ZVector<CallbackParameter>& getAccepted() const { return accepted; }

private:
    const char* check(const CallbackParameter& parameter, const ZString& type) {
        switch (parameter.kind) {
        case CALLBACK_METHOD_NAME:
        case CALLBACK_METHOD_SIGNATURE:
        case CALLBACK_METHOD_PARAMETER_TYPES:
            return type == "Ljava/lang/String;"
                       ? nullptr
                       : "parameters annotated with @MethodName and @MethodSignature must be of "
                         "type java.lang.String";
        case CALLBACK_CLASS_REF:
            return type == "Ljava/lang/Class;"
                       ? nullptr
                       : "parameter annotated with @ClassRef must be of type java.lang.Class";
        case CALLBACK_THROWN_EXCEPTION:
            return checkThrownException(type);
        case CALLBACK_PARAMS:
            return checkParams(type);
        case CALLBACK_THIS:
            return checkThis(type);
        case CALLBACK_ON_ENTER_RESULT:
            return checkOnEnterResult(type);
        case CALLBACK_RETURN_VALUE:
            return isOnReturn ? nullptr : "@ReturnValue is only allowed in onReturn()";
        case CALLBACK_PARAM:
            return parameter.index >= 1 ? nullptr
                                        : "invalid @Param annotation: index must be 1 or greater";
        default:
            Logger::error(ZString("unexpected callback parameter kind") +
                              longToString(parameter.kind),
                          VDK_HERE);
        }
    }

    const char* checkThrownException(const ZString& type) const {
        if (!isOnException) {
            return "@ThrownException is only allowed in onUncaughtException() callback";
        }
        if (type != "Ljava/lang/Throwable;") {
            return "parameter annotated with @ThrownException must be java.lang.Throwable";
        }
        return has(CALLBACK_THROWN_EXCEPTION)
                   ? "parameter with @ThrownException annotation already exist"
                   : nullptr;
    }

    const char* checkParams(const ZString& type) const {
        if (type != "[Ljava/lang/Object;") {
            return "@Params must be Object[]";
        }
        return has(CALLBACK_PARAMS) ? "parameter with @Params annotation already exist" : nullptr;
    }

    const char* checkThis(const ZString& type) {
        if (has(CALLBACK_THIS)) {
            return "parameter with @This annotation already exist";
        }
        if (!type.startsWith("L")) {
            return "@This must be a reference type";
        }
        const ZString className = type.substring(1, type.getLength() - 1);
        if (isInstanceOf) {
            return className == OBJECT_CLASS
                       ? nullptr
                       : "in probes annotated with @InstanceOf, parameters annotated with @This "
                         "must be of type java.lang.Object";
        }
        if (thisType.isEmpty()) {
            thisType = className;
        }
        return className == thisType
                   ? nullptr
                   : "parameters with @This annotation must have the same types in all callbacks";
    }

    const char* checkOnEnterResult(const ZString& type) const {
        if (isOnEnter) {
            return "@OnEnterResult is not allowed in onEnter()";
        }
        if (onEnter == nullptr) {
            return "@OnEnterResult cannot be used unless you define onEnter()";
        }
        if (type != onEnter->getReturnType()) {
            return "type of parameter annotated with @OnEnterResult and onEnter() return type must "
                   "be the same";
        }
        return has(CALLBACK_ON_ENTER_RESULT)
                   ? "parameter with @OnEnterResult annotation already exist"
                   : nullptr;
    }

    bool has(CallbackParameterKind kind) const {
        for (int i = 0; i < accepted.getSize(); i++) {
            if (accepted[i].kind == kind) {
                return true;
            }
        }
        return false;
    }

    const bool isOnEnter;
    const bool isOnReturn;
    const bool isOnException;
    const bool isInstanceOf;
    const MethodInfo* const onEnter;
    ZString& thisType;
    ZVector<CallbackParameter> accepted;
};

ZVector<CallbackParameter>* copyOf(const ZVector<CallbackParameter>& list) {
    auto* const copy = new ZVector<CallbackParameter>(list.isEmpty() ? 1 : list.getSize());
    for (int i = 0; i < list.getSize(); i++) {
        copy->push(list[i]);
    }
    return copy;
}

} // namespace

ZVector<CallbackParameter>* createCallbackParameters(ClassFile& probeClass, MethodInfo* callback,
                                                     const MethodInfo* onEnter, ZString& thisType,
                                                     bool isInstanceOf,
                                                     ProbeCreationResult* result) {
    if (callback == nullptr) {
        return nullptr;
    }
    ParameterRules rules(callback->getName(), onEnter, thisType, isInstanceOf);
    ZString className = probeClass.getSignature();
    className.replaceAll('/', '.');
    ZVectorSafe<ZString> types;
    callback->getParameterTypes(types);
    for (int i = 0; i < types.getSize(); i++) {
        ZVector<CallbackParameter> annotations;
        fillCallbackParameters(probeClass, callback, i, annotations);
        const char* const broken = rules.add(annotations, types[i]);
        if (broken != nullptr) {
            result->addError(className, callback->getName(), i, broken);
        }
    }
    return result->isOK() ? copyOf(rules.getAccepted()) : nullptr;
}
