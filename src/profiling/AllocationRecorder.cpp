#include "profiling/AllocationRecorder.h"

#include "core/ground/Globals.h"
#include "core/ground/Guard.h"
#include "core/jvm/CallbackNatives.h"

int vdkInitImpl(JNIEnv* env, jobject object, int frameHint) {
    if ((ourStatus.load(std::memory_order_relaxed) & ALLOCATION_RECORDING_BIT) == 0) {
        return frameHint;
    }
    // Nothing sets the bit while startAllocationRecording refuses.
    Logger::assertNotNULL(env, VDK_HERE);
    Logger::assertNotNULL(object, VDK_HERE);
    return frameHint;
}

jint JNICALL VDK_CALLBACK_NATIVE(vdkInit0)(JNIEnv* env, jclass, jobject object, jint frameHint) {
    jint next = frameHint;
    runGuarded(VDK_HERE, [&] { next = vdkInitImpl(env, object, frameHint); });
    return next;
}
