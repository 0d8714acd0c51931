// The natives of allocation recording.
#include "core/jvm/CallbackNatives.h"
#include "core/jvm/NativeEntry.h"
#include "profiling/memory/AllocationRecorder.h"

jstring JNICALL VDK_CALLBACK_NATIVE(startAllocationRecording)(
    JNIEnv* env, jclass, jboolean recordEachEnabled, jint recordEach, jboolean sizeLimitEnabled,
    jint sizeLimit, jboolean perClassGarbage) {
    return nativeResult<jstring>(env, VDK_HERE, nullptr, [&] {
        const AllocationSettings settings = {recordEachEnabled == JNI_TRUE, recordEach,
                                             sizeLimitEnabled == JNI_TRUE, sizeLimit,
                                             perClassGarbage == JNI_TRUE};
        return toJavaRefusal(env, startAllocationRecording(env, settings));
    });
}

jstring JNICALL VDK_CALLBACK_NATIVE(startSampledAllocationRecording)(JNIEnv* env, jclass,
                                                                     jint intervalBytes,
                                                                     jboolean perClassGarbage) {
    return nativeResult<jstring>(env, VDK_HERE, nullptr, [&] {
        return toJavaRefusal(
            env, startSampledAllocationRecording(env, intervalBytes, perClassGarbage == JNI_TRUE));
    });
}

void JNICALL VDK_CALLBACK_NATIVE(stopAllocationRecording)(JNIEnv* env, jclass) {
    runNative(env, VDK_HERE, [&] { stopAllocationRecording(env); });
}

void JNICALL VDK_CALLBACK_NATIVE(clearAllocationData)(JNIEnv* env, jclass) {
    runNative(env, VDK_HERE, [&] { clearAllocationData(env); });
}

// An internal error leaves the hint as it is, and the application without an exception.
jint JNICALL VDK_CALLBACK_NATIVE(vdkInit0)(JNIEnv* env, jclass, jobject object, jint frameHint) {
    jint next = frameHint;
    runGuarded(VDK_HERE, [&] { next = vdkInitImpl(env, object, frameHint); });
    return next;
}

jboolean JNICALL VDK_CALLBACK_NATIVE(getAllocationRecordingSettingsRecordEachEnabled)(JNIEnv*,
                                                                                      jclass) {
    return ourAllocationRecordingSettings.recordEachEnabled ? JNI_TRUE : JNI_FALSE;
}

jint JNICALL VDK_CALLBACK_NATIVE(getAllocationRecordingSettingsRecordEach)(JNIEnv*, jclass) {
    return ourAllocationRecordingSettings.recordEach;
}

jboolean JNICALL VDK_CALLBACK_NATIVE(getAllocationRecordingSettingsSizeLimitEnabled)(JNIEnv*,
                                                                                     jclass) {
    return ourAllocationRecordingSettings.sizeLimitEnabled ? JNI_TRUE : JNI_FALSE;
}

jint JNICALL VDK_CALLBACK_NATIVE(getAllocationRecordingSettingsSizeLimit)(JNIEnv*, jclass) {
    return ourAllocationRecordingSettings.sizeLimit;
}

jboolean JNICALL VDK_CALLBACK_NATIVE(getAllocationRecordingSettingsPerClassGarbage)(JNIEnv*,
                                                                                    jclass) {
    return ourAllocationRecordingSettings.perClassGarbage ? JNI_TRUE : JNI_FALSE;
}
