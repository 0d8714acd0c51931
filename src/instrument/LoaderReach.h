#pragma once

#include "core/ground/ZString.h"

#include <jvmti.h>

// Which class loaders find the class that inserted calls name. Those of the JDK do, and those whose
// loadClass methods were given the agent's beginning (LoaderDelegation.h); what another one
// defines must stay as it is, or its first call would fail.

enum class LoaderUse { FIRST_LOAD, REDEFINITION };

// The class of this internal name was left without that beginning, so it must not be relied on, nor
// its subclasses. For any class: only those of loaders are ever asked for. Caller holds ourLock.
void distrustLoaderClass(const ZString& name);

// From here on the loaders that were there before the hook are patched or distrusted. Until then
// only the JDK's own are relied on for classes that are being loaded.
void trustEarlierLoaders();
// There are loaders again that the hook has not seen.
void forgetEarlierLoaders();

// Whether classes that this loader defines find the agent; null is the boot loader. Runs no Java
// code. Caller holds ourLock.
bool loaderFindsAgent(JNIEnv* env, jobject loader, LoaderUse use);

// Whether the class of the loader is one of the JDK's.
bool isLoaderOfJdk(JNIEnv* env, jobject loader);

// Keeps the class java.lang.ClassLoader, which must not be looked for while a class is at work.
void rememberRootOfLoaders(JNIEnv* env, jclass root);
// The parent of a loader as a local reference; null for the boot loader and where it can't be told.
jobject parentOfLoader(JNIEnv* env, jobject loader);

// Calls visit(loader) for the loader and its parents, until it gives false.
template <typename Visitor>
void eachParent(JNIEnv* env, jobject loader, Visitor&& visit) {
    // A longer chain is taken for a fault.
    constexpr int LONGEST_CHAIN = 1000;
    jobject current = loader == nullptr ? nullptr : env->NewLocalRef(loader);
    bool goesOn = true;
    for (int i = 0; current != nullptr && i < LONGEST_CHAIN; i++) {
        goesOn = goesOn && visit(current);
        jobject parent = goesOn ? parentOfLoader(env, current) : nullptr;
        env->DeleteLocalRef(current);
        current = parent;
    }
    env->DeleteLocalRef(current);
}

// The internal name of a class; empty for an array and when the JVM does not tell.
ZString internalNameOf(jclass type);
