#pragma once

#include "core/ground/ZString.h"

#include <jni.h>

// ExceptionCounts: how many exceptions there were of each class since somebody asked last; for the
// listeners of triggers, apart from the rows of exception. Those of virtual threads count too.
//
// Takes no lock but its own, over which the JVM is asked nothing: safe on any thread.
class ExceptionCounts {
public:
    // One of this class. An exception is to be told once.
    static void count(JNIEnv* env, jobject exception);
    // Lines of a number, a blank and a dotted class name; counting begins anew with it.
    static ZString take();
};
