#pragma once

#include "core/ground/Guard.h"
#include "core/jvm/CallbackNatives.h"
#include "core/jvm/JNIUtils.h"

#include <jni.h>

// Begins the definition of a native of com.vandrik.Natives, which programs call that link the
// library as a client. Those of Callback begin with VDK_CALLBACK_NATIVE.
#define VDK_CLIENT_NATIVE(type, name)                                                              \
    extern "C" JNIEXPORT type JNICALL Java_com_vandrik_Natives_##name

// Runs the body of a native. After an internal error the Java caller gets an exception, and the
// native returns what its outputs were set to before.
template <typename Body>
bool runNative(JNIEnv* env, const char* file, int line, Body&& body) noexcept {
    if (runGuarded(file, line, body)) {
        return true;
    }
    runGuarded(file, line, [&] { throwExceptionAssertionFailed(env); });
    return false;
}

// The same for a body that gives the native's result: the fallback after an internal error.
template <typename Result, typename Body>
Result nativeResult(JNIEnv* env, const char* file, int line, Result fallback,
                    Body&& body) noexcept {
    Result result = fallback;
    runNative(env, file, line, [&] { result = body(); });
    return result;
}
