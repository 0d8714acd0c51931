#pragma once

#include <jni.h>

// Set during the load: agentStart defines the classes, as the boot path doesn't have them.
extern bool ourDefinesRuntimeClasses;

// Makes the classes of the runtime archive known to the boot loader straight from memory: the way
// out where the archive must not or can't stand on the boot class path. Classes that are defined
// already stay as they are. Returns the number of classes defined; a class that the JVM refuses is
// an internal error.
int defineRuntimeClasses(JNIEnv* env);
