#pragma once

#include <jni.h>

// Parks: how long threads were in jdk.internal.misc.Unsafe.park, below which all of
// java.util.concurrent waits. Its native is taken over while monitors are recorded, and given back:
// JVMTI tells of monitors alone. The rows stand among those of monitor.
//
// Platform threads of the application only: a virtual thread parks without this native, unless it
// is pinned.
class Parks {
public:
    // Takes the native over or gives it back, as the state asks. Goes through Java: the JVM warns
    // of natives of its own that are bound anew with no caller of its own loader. A failure goes
    // to the log; nothing is recorded then. Caller holds no lock.
    static void update(JNIEnv* env);
    // What that Java method calls.
    static void bind(JNIEnv* env);
};
