#pragma once

#include <jni.h>

#include "core/ground/Guard.h"
#include "core/ground/JNIUtils.h"

// Runs the body of a native of Callback. After an internal error the Java caller gets an exception,
// and the native returns what its outputs were set to before.
template <typename Body>
bool runNative(JNIEnv* env, const char* file, int line, Body&& body) noexcept {
    if (runGuarded(file, line, body)) {
        return true;
    }
    runGuarded(file, line, [&] { throwExceptionAssertionFailed(env); });
    return false;
}
