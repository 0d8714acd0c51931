#pragma once

#include "platform/ThreadTimers.h"

#include <jni.h>
#include <stdint.h>

// FrameAnchor: the JVM's own note, in its structure of a thread, of the last Java frame below
// native code or the JVM's. AsyncGetCallTrace goes by it where there is one, in preference to
// registers, also where it cannot walk from there: from some stubs that unwind exceptions for one.
// Where the note stands is read from the tables that the JVM has for debuggers.
class FrameAnchor {
public:
    // Finds the place for the threads of this JVM. False where that is not possible, and there is
    // nothing to be hidden then. On a thread of Java.
    static bool prepare(JNIEnv* env);

    // The note of the current thread, with its zeros: without a stack pointer there is none. For
    // handlers.
    static ThreadTimers::Registers read(JNIEnv* env);
    // A note elsewhere: calls of Java by the JVM keep the one of before.
    static ThreadTimers::Registers readAt(uintptr_t anchor);

    // Hides the note of the current thread, if it has one, until the end of the block. For
    // handlers of signals in Java code, where nobody else looks at it.
    explicit FrameAnchor(JNIEnv* env);
    ~FrameAnchor();
    FrameAnchor(const FrameAnchor&) = delete;
    FrameAnchor& operator=(const FrameAnchor&) = delete;

    // Where the frame begins; 0 if there was no note.
    uintptr_t getStack() const { return stack; }

private:
    uintptr_t* place;
    uintptr_t stack;
};
