#pragma once

#include <jni.h>
#include <jvmti.h>

// The stack of the virtual thread that a carrier thread runs at the moment. What the JVM's walk
// over all stacks shows of a carrier are the few frames that run it.

// False on a JVM without virtual threads, or without a function that tells which one is mounted.
bool canSeeMountedThreads();

// The JVM's own function about virtual threads, with what it needs to be called; null without it.
jvmtiExtensionFunction findVirtualThreadFunction(const char* id);

// Null if none is mounted, or if they change too quickly for a stack to be had. The caller frees it
// as JVMTI memory. Not to be called with ourLock held: it waits until no virtual thread is being
// mounted or unmounted.
jvmtiStackInfo* takeMountedStack(JNIEnv* env, jthread carrier, jint maxFrames);
