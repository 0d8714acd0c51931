// The natives that register and unregister probes while the JVM runs.
#include "core/ground/Globals.h"
#include "core/ground/JavaNames.h"
#include "core/jvm/CommonUtils.h"
#include "core/jvm/JvmGlobals.h"
#include "core/jvm/NativeEntry.h"
#include "instrument/ProbeChanges.h"
#include "instrument/RenewedClasses.h"
#include "instrument/Retransformation.h"
#include "instrument/WantedCalls.h"
#include "probes/Probes.h"

namespace {

// Asks getProbes for all that are known, the built-in ones among them; any other number for those
// that are registered.
constexpr jint KNOWN_PROBES = 0;

// The texts of the array but for nulls.
void fillTexts(JNIEnv* env, jobjectArray array, ZVectorSafe<ZString>& texts) {
    const jsize count = array == nullptr ? 0 : env->GetArrayLength(array);
    for (jsize i = 0; i < count; i++) {
        auto text = static_cast<jstring>(env->GetObjectArrayElement(array, i));
        if (text != nullptr) {
            texts.push(toZString(env, text));
            env->DeleteLocalRef(text);
        }
    }
}

// Classes by the names that Java code uses, as internal names.
void fillClassNames(JNIEnv* env, jobjectArray array, ZVectorSafe<ZString>& names) {
    ZVectorSafe<ZString> dotted;
    fillTexts(env, array, dotted);
    for (int i = 0; i < dotted.getSize(); i++) {
        ZString name = dotted[i];
        name.replaceAll('.', '/');
        names.push(name);
    }
}

jobjectArray toJavaArray(JNIEnv* env, const ZVectorSafe<ZString>& texts) {
    jclass stringClass = env->FindClass("java/lang/String");
    jobjectArray array = stringClass == nullptr
                             ? nullptr
                             : env->NewObjectArray(texts.getSize(), stringClass, nullptr);
    for (int i = 0; array != nullptr && i < texts.getSize(); i++) {
        jstring text = toJavaString(env, texts[i]);
        if (text == nullptr) {
            return nullptr;
        }
        env->SetObjectArrayElement(array, i, text);
        env->DeleteLocalRef(text);
    }
    env->DeleteLocalRef(stringClass);
    return array;
}

// The start itself goes over the classes that are there.
void follow(JNIEnv* env, const char* reason) {
    if (ourVMInitCalled) {
        retransformClassesForChangedProbes(env, reason);
    }
}

// Puts what is good into the list, and weaves it, at once or with the next change. Gives the
// failure text, empty without one.
ZString complete(JNIEnv* env, ProbeCreationResult& result, const char* reason,
                 bool isAtOnce = true) {
    const bool hadNoCalls = !WantedCalls::now().has(CALLS_LOADERS);
    if (result.isOK()) {
        LockHolder lock(ourLock);
        Probes::addProbes(&result);
    }
    if (!result.messages.isEmpty()) {
        Logger::message(result.getAllMessages());
    }
    if (!result.isOK()) {
        return result.getAllErrors();
    }
    result.logRegisteredProbeClasses();
    if (hadNoCalls && ourVMInitCalled) {
        retransformLoadersLoadedBeforeAttach(env);
    }
    if (isAtOnce) {
        follow(env, reason);
    }
    return ZString();
}

ZString registerByName(JNIEnv* env, jobjectArray classNames) {
    ZVectorSafe<ZString> names;
    fillClassNames(env, classNames, names);
    ProbeCreationResult result;
    if (names.isEmpty()) {
        result.addError("no probe classes are named");
    } else {
        Probes::createProbeDescriptors(names, PROBE_ADDED, &result);
    }
    return complete(env, result, "registerByName");
}

void logUnregistered(const ZVectorSafe<ZString>& removed) {
    ZString text("Unregistered probe classes: ");
    for (int i = 0; i < removed.getSize(); i++) {
        ZString name = removed[i];
        name.replaceAll('/', '.');
        text.append("\n  Unregistered: ");
        text.append(name);
    }
    if (!removed.isEmpty()) {
        Logger::message(text);
    }
}

void unregister(JNIEnv* env, jobjectArray classNames) {
    ZVectorSafe<ZString> names;
    fillClassNames(env, classNames, names);
    ZVectorSafe<ZString> removed;
    {
        LockHolder lock(ourLock);
        for (int i = 0; i < names.getSize(); i++) {
            Probes::removeProbes(names[i], removed);
        }
    }
    logUnregistered(removed);
    follow(env, "unregister");
}

// Classes that carry calls of a probe; slashed name.
int countWovenClasses(const ZString& probeClass) {
    LockHolder lock(ourLock);
    for (int i = 0; i < Probes::ourProbeDescriptors.getSize(); i++) {
        if (Probes::ourProbeDescriptors[i]->probeClass == probeClass) {
            return Probes::ourProbeDescriptors[i]->woven.count();
        }
    }
    return 0;
}

// Those that no user asks for: one lets others be found, one marks events in the call tree, and
// those of triggers.
bool serves(const ZString& name) {
    return name == LOADING_PROBE_DOTTED || name == J2EE_PROBE_DOTTED ||
           name.startsWith(TRIGGER_PROBE_DOTTED);
}

// Classes that arrived as bytes, to be defined by the boot loader.
class ArrivedClasses {
public:
    ArrivedClasses() = default;
    ~ArrivedClasses() {
        for (int i = 0; i < bytes.getSize(); i++) {
            delete bytes[i];
        }
    }
    ArrivedClasses(const ArrivedClasses&) = delete;
    ArrivedClasses& operator=(const ArrivedClasses&) = delete;

    // Reads the arrays but for nulls.
    void read(JNIEnv* env, jobjectArray classes, ProbeCreationResult& result) {
        const jsize count = classes == nullptr ? 0 : env->GetArrayLength(classes);
        for (jsize i = 0; i < count; i++) {
            auto array = static_cast<jbyteArray>(env->GetObjectArrayElement(classes, i));
            if (array == nullptr) {
                continue;
            }
            const jsize length = env->GetArrayLength(array);
            auto* const copy = new ZVector<unsigned char>(length + 1);
            bytes.push(copy);
            env->GetByteArrayRegion(array, 0, length,
                                    reinterpret_cast<jbyte*>(copy->extend(length)));
            env->DeleteLocalRef(array);
            ZString name;
            Probes::createProbeDescriptor(copy, PROBE_ADDED, &result, &name);
            names.push(name);
        }
    }

    // A class may come before the one that it extends: what fails is tried again behind the others.
    void define(JNIEnv* env, ProbeCreationResult& result) {
        ZVectorSafe<ZString> failures;
        int left = bytes.getSize();
        for (int before = left + 1; left > 0 && left < before;) {
            before = left;
            failures.clear();
            left = defineOnce(env, failures);
        }
        for (int i = 0, failed = 0; i < bytes.getSize(); i++) {
            if (bytes[i] != nullptr) {
                ZString name = names[i];
                name.replaceAll('/', '.');
                result.addError(name, ZString("DefineClass exception: ") + failures[failed++]);
            }
        }
    }

private:
    // Gives the number of those that are left, each with its failure.
    int defineOnce(JNIEnv* env, ZVectorSafe<ZString>& failures) {
        for (int i = 0; i < bytes.getSize(); i++) {
            if (bytes[i] == nullptr) {
                continue;
            }
            jclass defined = env->DefineClass(names[i].c_str(), nullptr,
                                              reinterpret_cast<const jbyte*>(bytes[i]->data()),
                                              bytes[i]->getSize());
            jthrowable exception = env->ExceptionOccurred();
            if (exception != nullptr) {
                env->ExceptionClear();
                const ZString message = getExceptionMessage(env, exception);
                env->DeleteLocalRef(exception);
                const ZString failure = redefine(env, i, message);
                if (!failure.isEmpty()) {
                    failures.push(failure);
                    continue;
                }
            }
            env->DeleteLocalRef(defined);
            delete bytes[i];
            bytes.set(i, nullptr);
        }
        return failures.getSize();
    }

    // A class that is there from an earlier time takes the new code, if it has the same members.
    // Gives the failure, empty without one.
    ZString redefine(JNIEnv* env, int i, const ZString& failure) const {
        jclass existing = env->FindClass(names[i].c_str());
        if (existing == nullptr) {
            env->ExceptionClear();
            return failure;
        }
        jvmtiClassDefinition definition;
        definition.klass = existing;
        definition.class_byte_count = bytes[i]->getSize();
        definition.class_bytes = bytes[i]->data();
        ZVector<unsigned char>* const before = RenewedClasses::replace(names[i], *bytes[i]);
        const jvmtiError error = ourJVMTI->RedefineClasses(1, &definition);
        env->DeleteLocalRef(existing);
        if (error == JVMTI_ERROR_NONE) {
            RenewedClasses::forget(before);
        } else {
            RenewedClasses::restore(names[i], before);
        }
        return error == JVMTI_ERROR_NONE
                   ? ZString()
                   : failure + "; the class that is there cannot be changed into it (error=" +
                         longToString(error) + "): give the new one another name";
    }

    ZVector<ZVector<unsigned char>*> bytes; // null once they are defined
    ZVectorSafe<ZString> names;             // internal
};

// The classes are defined before they are woven anywhere: calls of a class that is not there would
// fail in the application.
ZString registerByBytecode(JNIEnv* env, jobjectArray classes, bool isAtOnce) {
    ProbeCreationResult result;
    ArrivedClasses arrived;
    arrived.read(env, classes, result);
    if (result.isOK() && result.descriptors.isEmpty()) {
        result.addError(ZString("no probes found among these classes: ") +
                        result.getScannedClasses());
    }
    if (result.isOK()) {
        arrived.define(env, result);
    }
    return complete(env, result, "registerByBytecode", isAtOnce);
}

void addPaths(JNIEnv* env, jobjectArray paths) {
    ZVectorSafe<ZString> elements;
    fillTexts(env, paths, elements);
    for (int i = 0; i < elements.getSize(); i++) {
        const jvmtiError error = ourJVMTI->AddToSystemClassLoaderSearch(elements[i].c_str());
        if (error != JVMTI_ERROR_NONE) {
            throwException(env, (ZString("the JVM does not take the path element ") + elements[i] +
                                 ": " + longToString(error))
                                    .c_str());
            return;
        }
        Probes::addSystemPathElement(elements[i]);
    }
}

} // namespace

jstring JNICALL VDK_CALLBACK_NATIVE(registerProbesByName)(JNIEnv* env, jclass,
                                                          jobjectArray classNames) {
    return nativeResult<jstring>(env, VDK_HERE, nullptr, [&] {
        return toJavaRefusal(env, registerByName(env, classNames));
    });
}

jstring JNICALL VDK_CALLBACK_NATIVE(registerProbesByBytecode)(JNIEnv* env, jclass,
                                                              jobjectArray classes,
                                                              jboolean dynamic, jboolean) {
    return nativeResult<jstring>(env, VDK_HERE, nullptr, [&] {
        return toJavaRefusal(env, registerByBytecode(env, classes, dynamic == JNI_TRUE));
    });
}

void JNICALL VDK_CALLBACK_NATIVE(unregisterProbes)(JNIEnv* env, jclass, jobjectArray classNames) {
    runNative(env, VDK_HERE, [&] { unregister(env, classNames); });
}

jint JNICALL VDK_CALLBACK_NATIVE(getWovenClassCount)(JNIEnv* env, jclass, jstring probeClass) {
    return nativeResult<jint>(env, VDK_HERE, 0, [&] {
        ZString name = toZString(env, probeClass);
        name.replaceAll('.', '/');
        return countWovenClasses(name);
    });
}

jobjectArray JNICALL VDK_CALLBACK_NATIVE(getProbes)(JNIEnv* env, jclass, jint status) {
    return nativeResult<jobjectArray>(env, VDK_HERE, nullptr, [&] {
        ZVectorSafe<ZString> names;
        {
            LockHolder lock(ourLock);
            Probes::getTopProbeClasses(names, status == KNOWN_PROBES);
        }
        for (int i = names.getSize() - 1; i >= 0; i--) {
            if (serves(names[i])) {
                names.removeRange(i, i + 1);
            }
        }
        return toJavaArray(env, names);
    });
}

void JNICALL VDK_CALLBACK_NATIVE(addProbePaths)(JNIEnv* env, jclass, jobjectArray paths) {
    runNative(env, VDK_HERE, [&] { addPaths(env, paths); });
}
