#include "instrument/JNIRedirect.h"

#include "core/ground/Guard.h"
#include "core/jvm/CommonUtils.h"
#include "core/jvm/JvmGlobals.h"
#include "profiling/memory/AllocationRecorder.h"

#include <cstdarg>

namespace {

// Both are blocks that the JVM allocated, with as many entries as the running JVM has: newer JVMs
// have more than the header that this was compiled with, so the second is edited in place and never
// copied.
jniNativeInterface* ourSavedJNITable = nullptr;
jniNativeInterface* ourRedirectedJNITable = nullptr;
// The wrappers stand in the JVM's table now. Start, a failed attach and the end of the JVM change
// it, one after the other.
bool ourIsRedirected = false;

// Reports a new object unless creation failed; with an exception pending nothing may be called.
template <typename T>
T report(JNIEnv* env, T result) {
    if (result != nullptr) {
        runGuarded(VDK_HERE, [&] { vdkInitImpl(env, result, -1); });
    }
    return result;
}

// Wrapper of the table entry that `entry` points at, with that function's own parameters.
template <auto entry>
struct Redirected;
template <typename Result, typename... Parameters,
          Result (JNICALL* JNINativeInterface_::*entry)(JNIEnv*, Parameters...)>
struct Redirected<entry> {
    static Result JNICALL call(JNIEnv* env, Parameters... parameters) {
        return report(env, (ourSavedJNITable->*entry)(env, parameters...));
    }
};

jobject JNICALL jniRedirectNewObject(JNIEnv* env, jclass type, jmethodID constructor, ...) {
    va_list arguments;
    va_start(arguments, constructor);
    jobject result = ourSavedJNITable->NewObjectV(env, type, constructor, arguments);
    va_end(arguments);
    return report(env, result);
}

// The creating functions with fixed parameters: one row, one wrapper.
#define VDK_REDIRECTED_FUNCTIONS(ROW)                                                              \
    ROW(DefineClass)                                                                               \
    ROW(AllocObject)                                                                               \
    ROW(NewObjectV)                                                                                \
    ROW(NewObjectA)                                                                                \
    ROW(NewString)                                                                                 \
    ROW(NewStringUTF)                                                                              \
    ROW(NewObjectArray)                                                                            \
    ROW(NewBooleanArray)                                                                           \
    ROW(NewByteArray)                                                                              \
    ROW(NewCharArray)                                                                              \
    ROW(NewShortArray)                                                                             \
    ROW(NewIntArray)                                                                               \
    ROW(NewLongArray)                                                                              \
    ROW(NewFloatArray)                                                                             \
    ROW(NewDoubleArray)

#define VDK_WRAPPER(name)                                                                          \
    constexpr auto jniRedirect##name = Redirected<&JNINativeInterface_::name>::call;
VDK_REDIRECTED_FUNCTIONS(VDK_WRAPPER)

} // namespace

void redirectJNIFunctions() {
    jniNativeInterface* current = nullptr;
    CHECK_JVMTI(ourJVMTI->GetJNIFunctionTable(&current));
    if (current->NewObject == jniRedirectNewObject) {
        // Left in place by an attach that failed. Saved, it would make the wrappers call
        // themselves.
        ourIsRedirected = true;
        return;
    }
    ourSavedJNITable = current;
    CHECK_JVMTI(ourJVMTI->GetJNIFunctionTable(&ourRedirectedJNITable));
    ourRedirectedJNITable->NewObject = jniRedirectNewObject;
#define VDK_INSTALL(name) ourRedirectedJNITable->name = jniRedirect##name;
    VDK_REDIRECTED_FUNCTIONS(VDK_INSTALL)
    CHECK_JVMTI(ourJVMTI->SetJNIFunctionTable(ourRedirectedJNITable));
    ourIsRedirected = true;
}

void restoreJNIFunctions() {
    if (ourIsRedirected) {
        ourIsRedirected = false;
        CHECK_JVMTI(ourJVMTI->SetJNIFunctionTable(ourSavedJNITable));
    }
}
