// The natives through which the Java side switches CPU profiling.
#include "core/jvm/CallbackNatives.h"
#include "core/jvm/NativeEntry.h"
#include "profiling/cpu/Tracing.h"

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

jstring JNICALL VDK_CALLBACK_NATIVE(startSampling)(JNIEnv* env, jclass, jstring sampler, jlong mode,
                                                   jstring filters, jstring wallTimeSpec,
                                                   jstring threadPattern) {
    return nativeResult<jstring>(env, VDK_HERE, nullptr, [&] {
        const ZString filterText = toZString(env, filters);
        const ZString wallTimeText = toZString(env, wallTimeSpec);
        SamplerChoice choice;
        choice.threadPattern = threadPattern == nullptr ? ZString() : toZString(env, threadPattern);
        const ZString name = toZString(env, sampler);
        if (!choice.setByName(name) || (mode & CPU_COUNTS_BIT) != 0) {
            return toJavaRefusal(env, ZString("There is no sampler of this name: ") + name);
        }
        return toJavaRefusal(
            env, startCPUProfiling(env, mode, filters == nullptr ? nullptr : &filterText,
                                   wallTimeSpec == nullptr ? nullptr : &wallTimeText, choice));
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
