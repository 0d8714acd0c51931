// The natives through which the Java side switches CPU profiling.
#include "core/jvm/CallbackNatives.h"
#include "core/jvm/NativeEntry.h"
#include "profiling/cpu/Tracing.h"
#include "profiling/cpu/WallSampling.h"

jstring JNICALL VDK_CALLBACK_NATIVE(startCPUProfiling)(JNIEnv* env, jclass, jlong mode,
                                                       jstring filters, jstring wallTimeSpec) {
    return nativeResult<jstring>(env, VDK_HERE, nullptr, [&] {
        const ZString filterText = toZString(env, filters);
        const ZString wallTimeText = toZString(env, wallTimeSpec);
        return toJavaRefusal(
            env, startCPUProfiling(env, mode, filters == nullptr ? nullptr : &filterText,
                                   wallTimeSpec == nullptr ? nullptr : &wallTimeText));
    });
}

jstring JNICALL VDK_CALLBACK_NATIVE(startWallSampling)(JNIEnv* env, jclass, jstring filters,
                                                       jstring threadPattern) {
    return nativeResult<jstring>(env, VDK_HERE, nullptr, [&] {
        const ZString filterText = toZString(env, filters);
        const ZString pattern =
            threadPattern == nullptr ? ZString() : toZString(env, threadPattern);
        return toJavaRefusal(
            env, WallSampling::start(env, filters == nullptr ? nullptr : &filterText, pattern));
    });
}

void JNICALL VDK_CALLBACK_NATIVE(stopCPUProfiling)(JNIEnv* env, jclass, jboolean log) {
    runNative(env, VDK_HERE, [&] { stopCPUProfilingImpl(env, log == JNI_TRUE); });
}

void JNICALL VDK_CALLBACK_NATIVE(clearCPUData)(JNIEnv* env, jclass, jboolean log) {
    runNative(env, VDK_HERE, [&] { clearCPUDataImpl(env, log == JNI_TRUE); });
}

void JNICALL VDK_CALLBACK_NATIVE(startCalibrating)(JNIEnv* env, jclass) {
    runNative(env, VDK_HERE, [&] { startCalibrating(env); });
}

jlong JNICALL VDK_CALLBACK_NATIVE(getCalibrationResult)(JNIEnv*, jclass) {
    return getCalibration();
}

void JNICALL VDK_CALLBACK_NATIVE(setCalibrationResult)(JNIEnv*, jclass, jlong costNs) {
    setCalibration(costNs);
}
