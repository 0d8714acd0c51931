#pragma once

#include "core/ground/ZVector.h"

#include <jvmti.h>

// SuspendedThreads: the application stands still as long as this object lives. All platform threads
// but the current one are suspended, and on every way out those that it suspended, and no others,
// run again. Caller holds ourLock throughout.
//
// While it lives a suspended thread may hold any monitor of Java: no Java code may run, no class be
// loaded, nothing be redefined, and no lock be waited for that a thread holds over a call into the
// JVM. ourLock is none: its holder is the caller, so no suspended thread is in a call that has it.
class SuspendedThreads {
public:
    // Suspends nothing where the JVM does not give the right to (a debugger has it), and nothing
    // when the caller is a virtual thread: its carrier must run. Never throws.
    explicit SuspendedThreads(JNIEnv* jniEnv) noexcept;
    ~SuspendedThreads();
    SuspendedThreads(const SuspendedThreads&) = delete;
    SuspendedThreads& operator=(const SuspendedThreads&) = delete;

    // Lets the threads run again, in the order in which they were suspended. Runs at the end of the
    // block anyway.
    void resume() noexcept;

    int getCount() const { return count; }

private:
    void suspendAll();
    // The threads to suspend: moves them to the front and gives their number; the references to the
    // others are deleted. 0 if the current thread is not among them.
    jint selectOthers(jint all);

    JNIEnv* env;
    jthread* threads; // JVMTI memory; the first `count` were suspended here
    jvmtiError* results;
    jint count;
    bool holdsCapability;
};
