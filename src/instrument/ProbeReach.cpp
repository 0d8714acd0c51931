#include "instrument/ProbeReach.h"

#include "classfile/ClassFile.h"
#include "core/ground/Globals.h"
#include "core/ground/JavaNames.h"
#include "core/jvm/JNIUtils.h"
#include "instrument/ClassBatches.h"
#include "instrument/LoaderReach.h"
#include "probes/Probes.h"

namespace {

jobject ourSystemLoader = nullptr;

// A loader that has loaded a class of this name. One that was collected leaves a null behind.
struct KnownClass {
    ZString name; // internal
    bool isOfBoot = false;
    jweak loader = nullptr;
};
ZVector<KnownClass*>& ourKnownClasses = *new ZVector<KnownClass*>();

bool isAboutInstancesOf(const ZString& name) {
    for (int i = 0; i < Probes::ourProbeDescriptors.getSize(); i++) {
        if (Probes::ourProbeDescriptors[i]->instanceOfClass == name) {
            return true;
        }
    }
    return false;
}

bool isKnown(JNIEnv* env, const ZString& name, jobject loader) {
    for (int i = 0; i < ourKnownClasses.getSize(); i++) {
        const KnownClass& known = *ourKnownClasses[i];
        if (known.name == name &&
            (loader == nullptr ? known.isOfBoot
                               : !known.isOfBoot && env->IsSameObject(known.loader, loader))) {
            return true;
        }
    }
    return false;
}

void forgetCollected(JNIEnv* env) {
    for (int i = ourKnownClasses.getSize() - 1; i >= 0; i--) {
        KnownClass* const known = ourKnownClasses[i];
        if (!known->isOfBoot && env->IsSameObject(known->loader, nullptr)) {
            env->DeleteWeakGlobalRef(known->loader);
            ourKnownClasses.removeRange(i, i + 1);
            delete known;
        }
    }
}

bool chainHas(JNIEnv* env, jobject loader, jobject wanted) {
    bool found = false;
    eachParent(env, loader, [&](jobject current) {
        found = env->IsSameObject(current, wanted);
        return !found;
    });
    return found;
}

bool isChainOfJdk(JNIEnv* env, jobject loader) {
    bool isOfJdk = true;
    eachParent(env, loader, [&](jobject current) {
        isOfJdk = isLoaderOfJdk(env, current);
        return isOfJdk;
    });
    return isOfJdk;
}

} // namespace

void rememberSystemLoader(JNIEnv* env) {
    jclass type = findClass(env, "java/lang/ClassLoader");
    rememberRootOfLoaders(env, type);
    jmethodID getter =
        env->GetStaticMethodID(type, "getSystemClassLoader", "()Ljava/lang/ClassLoader;");
    jobject loader = getter == nullptr ? nullptr : env->CallStaticObjectMethod(type, getter);
    if (!logPendingException(env, "getSystemClassLoader") && loader != nullptr) {
        LockHolder lock(ourLock);
        ourSystemLoader = env->NewGlobalRef(loader);
    }
    env->DeleteLocalRef(loader);
    env->DeleteLocalRef(type);
}

void rememberLoadedClass(JNIEnv* env, const ZString& name, jobject loader) {
    if (env == nullptr || !isAboutInstancesOf(name)) {
        return;
    }
    PendingException pending(env);
    if (isKnown(env, name, loader)) {
        return;
    }
    forgetCollected(env);
    auto* const known = new KnownClass();
    known->name = name;
    known->isOfBoot = loader == nullptr;
    known->loader = loader == nullptr ? nullptr : env->NewWeakGlobalRef(loader);
    ourKnownClasses.push(known);
}

void rememberLoadedClasses(JNIEnv* env) {
    eachLoadedClass(env, [&](jclass type) {
        const ZString name = internalNameOf(type);
        jobject loader = nullptr;
        LockHolder lock(ourLock);
        if (!name.isEmpty() && isAboutInstancesOf(name) &&
            ourJVMTI->GetClassLoader(type, &loader) == JVMTI_ERROR_NONE) {
            rememberLoadedClass(env, name, loader);
            env->DeleteLocalRef(loader);
        }
        return false;
    });
}

// Loaders of an application are relied on to ask their parents in the end where these lead to the
// loader of the class path; those of module systems don't lead there, and ask for java.* alone.
bool loaderFindsProbe(JNIEnv* env, jobject loader, const ProbeDescriptor& probe) {
    // Those that find no class of the agent are not rewritten at all.
    if (env == nullptr || probe.probeClass.startsWith("com/vandrik/")) {
        return true;
    }
    if (loader == nullptr) {
        return probe.home == PROBE_HOME_BOOT;
    }
    PendingException pending(env);
    if (ourSystemLoader != nullptr && chainHas(env, loader, ourSystemLoader)) {
        return true;
    }
    return probe.home == PROBE_HOME_BOOT && isChainOfJdk(env, loader);
}

bool findsInstanceOfClass(JNIEnv* env, jobject loader, ClassFile& classFile,
                          const ZString& wanted) {
    if (env == nullptr ||
        classFile.getConstantPool().findUtf8(Utf8View(wanted.c_str(), wanted.getLength())) > 0) {
        return true;
    }
    PendingException pending(env);
    for (int i = 0; i < ourKnownClasses.getSize(); i++) {
        const KnownClass& known = *ourKnownClasses[i];
        if (known.name == wanted &&
            (known.isOfBoot || (loader != nullptr && chainHas(env, loader, known.loader)))) {
            return true;
        }
    }
    return false;
}
