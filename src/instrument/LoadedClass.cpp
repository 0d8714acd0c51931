#include "instrument/LoadedClass.h"

#include "core/ground/Globals.h"
#include "core/jvm/CommonUtils.h"
#include "core/jvm/JNIUtils.h"
#include "core/jvm/JvmGlobals.h"
#include "instrument/LoaderReach.h"
#include "profiling/threads/MethodLookup.h"

namespace {

// More nesting of interfaces is taken for a fault.
constexpr int DEEPEST_INTERFACE = 100;
constexpr unsigned long FNV_OFFSET = 14695981039346656037UL;
constexpr unsigned long FNV_PRIME = 1099511628211UL;

// The class of this name that the loader is known to give, as a local reference, or null.
jclass findLoaded(JNIEnv* env, jobject loader, const ZString& name) {
    jint count = 0;
    JvmtiMemory<jclass> classes;
    if (ourJVMTI->GetClassLoaderClasses(loader, &count, classes.receive()) != JVMTI_ERROR_NONE) {
        return nullptr;
    }
    announceLocalReferences(env, count);
    jclass found = nullptr;
    for (jint i = 0; i < count; i++) {
        jclass type = classes.get()[i];
        if (found == nullptr && internalNameOf(type) == name) {
            found = type;
        } else {
            env->DeleteLocalRef(type);
        }
    }
    return found;
}

unsigned long hashOn(unsigned long hash, const ZString& text) {
    for (int i = 0; i < text.getLength(); i++) {
        hash = (hash ^ static_cast<unsigned char>(text.c_str()[i])) * FNV_PRIME;
    }
    return hash;
}

long hashOf(const ZString& className, const ZString& method) {
    return static_cast<long>(hashOn(hashOn(FNV_OFFSET, className), method));
}

// Whether one of the interfaces of the class is Serializable, or can't be told not to be.
bool mayImplementSerializable(JNIEnv* env, jclass type, int depth) {
    jint count = 0;
    JvmtiMemory<jclass> interfaces;
    if (depth > DEEPEST_INTERFACE || ourJVMTI->GetImplementedInterfaces(
                                         type, &count, interfaces.receive()) != JVMTI_ERROR_NONE) {
        return true;
    }
    announceLocalReferences(env, count);
    bool found = false;
    for (jint i = 0; i < count; i++) {
        jclass interface = interfaces.get()[i];
        found = found || internalNameOf(interface) == "java/io/Serializable" ||
                mayImplementSerializable(env, interface, depth + 1);
        env->DeleteLocalRef(interface);
    }
    return found;
}

// Takes the reference to the class.
bool maySerialize(JNIEnv* env, jclass type) {
    bool found = false;
    while (type != nullptr) {
        found = found || mayImplementSerializable(env, type, 0);
        jclass super = env->GetSuperclass(type);
        env->DeleteLocalRef(type);
        type = super;
    }
    return found;
}

} // namespace

bool FirstLoad::isNeverSerializable(const Utf8View& name) const {
    if (env == nullptr) {
        return false;
    }
    PendingException pending(env);
    jclass type = findLoaded(env, loader, name.toString());
    if (type == nullptr && loader != nullptr) {
        type = findLoaded(env, nullptr, name.toString());
    }
    return type != nullptr && !maySerialize(env, type);
}

void WrappedNatives::add(const ZString& className, ClassFile& classFile) {
    for (int i = 0; i < classFile.getMethods().getSize(); i++) {
        MethodInfo* const method = classFile.getMethods()[i];
        if (method->isNative() && method->getName().startsWith(ourNativeMethodPrefix)) {
            methods.add(hashOf(className,
                               method->getName().toString() + method->getDescriptor().toString()));
        }
    }
}

bool WrappedNatives::contains(const ZString& className, const ZString& renamed) const {
    return methods.contains(hashOf(className, renamed));
}

Redefinition::Redefinition(jclass type, const ZString& name, const WrappedNatives& known)
    : className(name), atLoad(known) {
    jint count = 0;
    JvmtiMemory<jmethodID> methods;
    const jvmtiError error = ourJVMTI->GetClassMethods(type, &count, methods.receive());
    if (error == JVMTI_ERROR_CLASS_NOT_PREPARED || error == JVMTI_ERROR_WRONG_PHASE) {
        isUntold = true;
        return;
    }
    if (error != JVMTI_ERROR_NONE) {
        Logger::message(ZString("warning: redefining class: ") + name +
                        ": failed to obtain methods: " + longToString(error));
        return;
    }
    for (jint i = 0; i < count; i++) {
        jint modifiers = 0;
        JvmtiMemory<char> methodName;
        JvmtiMemory<char> descriptor;
        if (ourJVMTI->GetMethodModifiers(methods.get()[i], &modifiers) == JVMTI_ERROR_NONE &&
            (modifiers & ACC_NATIVE) != 0 &&
            ourJVMTI->GetMethodName(methods.get()[i], methodName.receive(), descriptor.receive(),
                                    nullptr) == JVMTI_ERROR_NONE &&
            strstr(methodName.get(), ourNativeMethodPrefix) != nullptr) {
            wrapped.push(ZString(methodName.get()) + descriptor.get());
        }
    }
}

bool Redefinition::wasWrapped(const MethodInfo* method) const {
    const ZString renamed = ZString(ourNativeMethodPrefix) + method->getName().toString() +
                            method->getDescriptor().toString();
    if (isUntold) {
        return atLoad.contains(className, renamed);
    }
    for (int i = 0; i < wrapped.getSize(); i++) {
        if (wrapped[i] == renamed) {
            return true;
        }
    }
    return false;
}
