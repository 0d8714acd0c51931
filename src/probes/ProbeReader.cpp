// From the class file of a probe to its descriptor.

#include "classfile/ClassFile.h"
#include "core/ground/Logger.h"
#include "probes/CallbackParameters.h"
#include "probes/ProbeAnnotations.h"
#include "probes/Probes.h"
#include "probes/SignatureUtil.h"

namespace {

const char VOID[] = "V";

// The parameter lists until a descriptor owns them.
struct ParameterLists {
    ZVector<CallbackParameter>* onEnter = nullptr;
    ZVector<CallbackParameter>* onReturn = nullptr;
    ZVector<CallbackParameter>* onException = nullptr;

    ParameterLists() = default;
    ~ParameterLists() {
        delete onEnter;
        delete onReturn;
        delete onException;
    }
    ParameterLists(const ParameterLists&) = delete;
    ParameterLists& operator=(const ParameterLists&) = delete;
    void release() { onEnter = onReturn = onException = nullptr; }
};

ZString descriptorOf(const MethodInfo* method) {
    return method == nullptr ? ZString() : method->getDescriptor().toString();
}

bool hasKind(const ZVector<CallbackParameter>* list, CallbackParameterKind kind) {
    for (int i = 0; list != nullptr && i < list->getSize(); i++) {
        if (list->get(i).kind == kind) {
            return true;
        }
    }
    return false;
}

// One class that is a probe. The checks come in a fixed order; those behind an error go on where
// they can, so that a user sees all that is wrong at once.
class ProbeReader {
public:
    ProbeReader(ClassFile& file, ProbeCreationResult* problems)
        : classFile(file), result(problems), slashed(file.getSignature()), dotted(slashed) {
        dotted.replaceAll('/', '.');
    }

    const ZString& getName() const { return slashed; }

    void read(PROBE_STATUS status) {
        result->scannedClasses.push(dotted);
        fillMethodPatterns(classFile, patterns, instanceOf);
        if (patterns.isEmpty() || !isPublicClass() || !findCallbacks()) {
            return;
        }
        findReturnType();
        if (onEnter == nullptr && onReturn == nullptr && onException == nullptr) {
            addError("no callbacks found (onEnter(), onReturn(), onUncaughtException() or "
                     "onUncaughtExceptionExt())");
            return;
        }
        checkPublicStatic(onEnter, "onEnter callback must be public static");
        checkPublicStatic(onReturn, "onReturn callback must be public static");
        checkPublicStatic(onException, "onUncaughtException callback must be public static");
        createDescriptor(status);
    }

private:
    void addError(const char* text) { result->addError(dotted, text); }

    bool isPublicClass() {
        const bool isPublic = (classFile.getAccessFlags() & ACC_PUBLIC) != 0;
        if (!isPublic) {
            addError("class must be public");
        }
        return isPublic;
    }

    // False if there are several of that name: overloads are not told apart.
    bool findCallback(const char* name, MethodInfo** callback) {
        bool ambiguous = false;
        *callback = classFile.findFirstMethod(name, &ambiguous);
        if (ambiguous) {
            result->addError(dotted, ZString("more than one method ") + name + "()");
        }
        const MethodInfo* const found = *callback;
        // Anything else is no class that a JVM would load.
        Logger::assertTrue(found == nullptr || (found->getDescriptor().startsWith("(") &&
                                                !found->getReturnType().isEmpty()),
                           VDK_HERE);
        return !ambiguous;
    }

    bool findCallbacks() {
        if (!findCallback("onEnter", &onEnter) || !findCallback("onReturn", &onReturn) ||
            !findCallback("onUncaughtException", &onException)) {
            return false;
        }
        if (onException != nullptr && !onException->isVoid()) {
            addError("onUncaughtException() must be void");
        }
        MethodInfo* onExceptionExt = nullptr;
        if (!findCallback("onUncaughtExceptionExt", &onExceptionExt)) {
            return false;
        }
        if (onExceptionExt == nullptr) {
            return true;
        }
        if (onException != nullptr) {
            addError("onUncaughtException() and onUncaughtExceptionExt() callbacks cannot be used "
                     "together");
        }
        onException = onExceptionExt;
        isExceptionExt = true;
        return true;
    }

    // Which type the methods must return, if a callback answers in their place.
    void findReturnType() {
        const ZString normal = onReturn == nullptr ? ZString(VOID) : onReturn->getReturnType();
        replacesValue = normal != VOID;
        if (replacesValue) {
            returnType = normal;
        }
        if (!isExceptionExt) {
            return;
        }
        const ZString exceptional = onException->getReturnType();
        if (!replacesValue) {
            returnType = exceptional;
        } else if (exceptional != normal) {
            addError("onUncaughtExceptionExt() and onReturn() callback return types are different");
        }
    }

    void checkPublicStatic(const MethodInfo* callback, const char* text) {
        if (callback != nullptr && (!callback->isPublic() || !callback->isStatic())) {
            addError(text);
        }
    }

    void createDescriptor(PROBE_STATUS status) {
        const bool isInstanceOf = !instanceOf.isEmpty();
        ParameterLists lists;
        lists.onEnter =
            createCallbackParameters(classFile, onEnter, nullptr, instanceOf, isInstanceOf, result);
        lists.onReturn = createCallbackParameters(classFile, onReturn, onEnter, instanceOf,
                                                  isInstanceOf, result);
        lists.onException = createCallbackParameters(classFile, onException, onEnter, instanceOf,
                                                     isInstanceOf, result);
        if (instanceOf == "java/lang/Object") {
            instanceOf = ZString();
        }
        if (!result->isOK()) {
            return;
        }
        const bool givesResult = onEnter != nullptr && !onEnter->isVoid();
        const bool usesResult =
            givesResult && (hasKind(lists.onReturn, CALLBACK_ON_ENTER_RESULT) ||
                            hasKind(lists.onException, CALLBACK_ON_ENTER_RESULT));
        if (givesResult && !usesResult) {
            result->addWarning(dotted,
                               "onEnter() callback returns value which is not used; either use it "
                               "via @OnEnterResult or make onEnter() void");
        }
        auto* const descriptor = new ProbeDescriptor(
            slashed, descriptorOf(onEnter), descriptorOf(onReturn), descriptorOf(onException),
            lists.onEnter, lists.onReturn, lists.onException, usesResult, replacesValue,
            isExceptionExt, returnType, instanceOf, getExceptions());
        lists.release();
        result->descriptors.push(descriptor);
        descriptor->status = status;
        addPatterns(descriptor);
    }

    ZVectorSafe<ZString>& getExceptions() {
        MethodInfo* const callbacks[] = {onEnter, onReturn, onException};
        for (MethodInfo* const callback : callbacks) {
            if (callback != nullptr) {
                callback->fillExceptions(exceptions);
            }
        }
        return exceptions;
    }

    void addPatterns(ProbeDescriptor* descriptor) {
        for (int i = 0; i < patterns.getSize(); i++) {
            ZString parts[6];
            const ZString error = SignatureUtil::parseMethodPattern(
                patterns[i], parts[0], parts[1], parts[2], parts[3], parts[4], parts[5]);
            if (error.isEmpty()) {
                descriptor->addMethodPattern(parts[0], parts[1], parts[2], parts[3], parts[4],
                                             parts[5]);
            } else {
                result->addError(dotted, error);
            }
        }
    }

    ClassFile& classFile;
    ProbeCreationResult* const result;
    const ZString slashed;
    ZString dotted;
    ZVectorSafe<ZString> patterns;
    ZString instanceOf;
    MethodInfo* onEnter = nullptr;
    MethodInfo* onReturn = nullptr;
    MethodInfo* onException = nullptr;
    bool isExceptionExt = false;
    bool replacesValue = false;
    ZString returnType;
    ZVectorSafe<ZString> exceptions;
};

} // namespace

void Probes::createProbeDescriptor(const ZVector<unsigned char>* bytes, PROBE_STATUS status,
                                   ProbeCreationResult* result, ZString* className) {
    Logger::assertNotNULL(bytes, VDK_HERE);
    Logger::assertNotNULL(result, VDK_HERE);
    // Of this class alone: what is wrong with another one does not end its checks.
    ProbeCreationResult own;
    try {
        DataInput input(*bytes);
        ClassFile classFile(input);
        if (classFile.isInvalid()) {
            own.addError("invalid class file");
        } else {
            ProbeReader reader(classFile, &own);
            if (className != nullptr) {
                *className = reader.getName();
            }
            reader.read(status);
        }
    } catch (const VDKRuntimeException&) {
        // Malformed, or no class at all; the log has the place.
        own.addError("invalid class file");
    }
    result->takeOver(own);
}
