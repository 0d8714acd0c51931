#include "profiling/AllocationRecorder.h"

#include "core/ground/Globals.h"
#include "core/ground/Logger.h"

int vdkInitImpl(JNIEnv* env, jobject object, int frameHint) {
    if ((ourStatus.load(std::memory_order_relaxed) & ALLOCATION_RECORDING_BIT) == 0) {
        return frameHint;
    }
    // Nothing sets the bit while startAllocationRecording refuses.
    Logger::assertNotNULL(env, "AllocationRecorder", __LINE__);
    Logger::assertNotNULL(object, "AllocationRecorder", __LINE__);
    return frameHint;
}
