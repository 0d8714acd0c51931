#include "profiling/AllocationRecorder.h"

#include "core/ground/CallbackNatives.h"
#include "core/ground/Globals.h"
#include "core/ground/Guard.h"

int vdkInitImpl(JNIEnv* env, jobject object, int frameHint) {
    if ((ourStatus.load(std::memory_order_relaxed) & ALLOCATION_RECORDING_BIT) == 0) {
        return frameHint;
    }
    // Nothing sets the bit while startAllocationRecording refuses.
    Logger::assertNotNULL(env, "AllocationRecorder", __LINE__);
    Logger::assertNotNULL(object, "AllocationRecorder", __LINE__);
    return frameHint;
}

jint JNICALL Java_com_vandrik_runtime_Callback_vdkInit0(JNIEnv* env, jclass, jobject object,
                                                        jint frameHint) {
    jint next = frameHint;
    runGuarded("AllocationRecorder", __LINE__, [&] { next = vdkInitImpl(env, object, frameHint); });
    return next;
}
