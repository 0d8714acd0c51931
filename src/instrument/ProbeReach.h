#pragma once

#include "probes/ProbeDescriptor.h"

#include <jvmti.h>

class ClassFile;

// What woven calls name has to be found by the loader of the class that they are woven into, or the
// application would get a NoClassDefFoundError: the class of the probe, and the class whose
// instances it is about. All is told from what is loaded, without running Java code. Caller holds
// ourLock, but for rememberSystemLoader and rememberLoadedClasses.

// Once, when the loader of the application's class path is there.
void rememberSystemLoader(JNIEnv* env);
// Which loaders have the classes that the probes of the list are about; for those that were loaded
// before the probe was in the list.
void rememberLoadedClasses(JNIEnv* env);
// The hook sees a class that is being loaded.
void rememberLoadedClass(JNIEnv* env, const ZString& name, jobject loader);

// Whether classes that this loader defines find the class of the probe. Null is the boot loader.
bool loaderFindsProbe(JNIEnv* env, jobject loader, const ProbeDescriptor& probe);
// Whether the class may name the one whose instances the probe is about. Where nobody has loaded
// that one yet there are no instances.
bool findsInstanceOfClass(JNIEnv* env, jobject loader, ClassFile& classFile, const ZString& wanted);
