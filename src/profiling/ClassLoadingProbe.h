#pragma once

#include <jni.h>

// ClassLoadingProbe records class loads and unloads in a user table of its own, made at the first
// row. A class's tag in ourJVMTI8 is the row of its name, so that unloading, which sees nothing but
// the tag, can tell the name.
class ClassLoadingProbe {
public:
    // Back to the state after the load of the library, for a new database.
    static void reset();
    // A class was prepared, on the thread that did it. Takes ourLock.
    static void onClassPrepare(JNIEnv* env, jclass type);
    // A class was freed. Takes the lock of the queue alone: the JVM may call this on any thread,
    // the one that walks the heap included.
    static void onClassUnload(long tag);
    // Makes the rows of the unloads that have queued up, in order of arrival. Caller holds ourLock.
    static void flushUnloadedClassesToDB();
};
