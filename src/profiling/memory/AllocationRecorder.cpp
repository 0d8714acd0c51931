#include "profiling/memory/AllocationRecorder.h"

#include "core/ground/Globals.h"
#include "core/jvm/CallbackNatives.h"
#include "db/DB.h"
#include "profiling/UserMessage.h"

ZString startAllocationRecording(JNIEnv*, const AllocationSettings&) {
    return VDK_MISSING_TEXT("allocation recording");
}

void clearAllocationData(JNIEnv* env) {
    {
        LockHolder lock(ourLock);
        ourDB->clearTableAndTellReaders(SLOT_AllocInfo);
    }
    userMessage(env, "Allocation data cleared");
}

int vdkInitImpl(JNIEnv* env, jobject object, int frameHint) {
    if ((ourStatus.load(std::memory_order_relaxed) & ALLOCATION_RECORDING_BIT) == 0) {
        return frameHint;
    }
    // Nothing sets the bit while startAllocationRecording refuses.
    Logger::assertNotNULL(env, VDK_HERE);
    Logger::assertNotNULL(object, VDK_HERE);
    return frameHint;
}
