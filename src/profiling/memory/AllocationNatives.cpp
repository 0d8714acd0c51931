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

void JNICALL VDK_CALLBACK_NATIVE(clearAllocationData)(JNIEnv* env, jclass) {
    runNative(env, VDK_HERE, [&] { clearAllocationData(env); });
}

// An internal error leaves the hint as it is, and the application without an exception.
jint JNICALL VDK_CALLBACK_NATIVE(vdkInit0)(JNIEnv* env, jclass, jobject object, jint frameHint) {
    jint next = frameHint;
    runGuarded(VDK_HERE, [&] { next = vdkInitImpl(env, object, frameHint); });
    return next;
}
