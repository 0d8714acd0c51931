// The natives of what the JVM's events report: waits at monitors, exceptions.
#include "core/jvm/CallbackNatives.h"
#include "core/jvm/JNIUtils.h"
#include "core/jvm/NativeEntry.h"
#include "profiling/events/ExceptionCounts.h"
#include "profiling/events/Exceptions.h"
#include "profiling/events/Monitors.h"
#include "profiling/events/Parks.h"

void JNICALL VDK_CALLBACK_NATIVE(bindPark)(JNIEnv* env, jclass) {
    runNative(env, VDK_HERE, [&] { Parks::bind(env); });
}

jstring JNICALL VDK_CALLBACK_NATIVE(startMonitorProfiling)(JNIEnv* env, jclass) {
    return nativeResult<jstring>(env, VDK_HERE, nullptr, [&] {
        return toJavaRefusal(env, Monitors::startMonitorProfiling(env));
    });
}

void JNICALL VDK_CALLBACK_NATIVE(stopMonitorProfiling)(JNIEnv* env, jclass) {
    runNative(env, VDK_HERE, [&] { Monitors::stopMonitorProfiling(env); });
}

void JNICALL VDK_CALLBACK_NATIVE(clearMonitorData)(JNIEnv* env, jclass) {
    runNative(env, VDK_HERE, [] {
        LockHolder lock(ourLock);
        Monitors::clearMonitorData();
    });
}

void JNICALL VDK_CALLBACK_NATIVE(clearExceptions)(JNIEnv* env, jclass) {
    runNative(env, VDK_HERE, [] {
        LockHolder lock(ourLock);
        Exceptions::clearExceptions();
    });
}

void JNICALL VDK_CALLBACK_NATIVE(countExceptions)(JNIEnv* env, jclass, jboolean on) {
    runNative(env, VDK_HERE, [&] { Exceptions::countByClass(env, on != JNI_FALSE); });
}

jstring JNICALL VDK_CALLBACK_NATIVE(takeExceptionCounts)(JNIEnv* env, jclass) {
    return nativeResult<jstring>(env, VDK_HERE, nullptr,
                                 [&] { return toJavaString(env, ExceptionCounts::take()); });
}
