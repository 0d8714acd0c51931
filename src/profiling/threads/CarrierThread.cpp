#include "profiling/threads/CarrierThread.h"

#include "core/ground/Globals.h"
#include "core/jvm/CommonUtils.h"
#include "core/jvm/JvmGlobals.h"
#include "profiling/threads/MountedStack.h"
#include "profiling/threads/ThreadInfo.h"

namespace {

// Of the threads' fixed block, so that finding it takes no call.
thread_local ThreadInfo* ourNativeThreadInfo __attribute__((tls_model("initial-exec"))) = nullptr;

// For a thread that began before the agent.
ThreadInfo* askForCarrier() {
    static const jvmtiExtensionFunction function =
        findVirtualThreadFunction("com.sun.hotspot.functions.GetCarrierThread");
    jthread current = nullptr;
    jthread carrier = nullptr;
    if (function == nullptr || ourJVMTI->GetCurrentThread(&current) != JVMTI_ERROR_NONE) {
        return nullptr;
    }
    // The references go with the native call that this is part of.
    const jvmtiError error = function(ourJVMTI, current, &carrier);
    return error != JVMTI_ERROR_NONE || carrier == nullptr ? nullptr : getStoredThreadInfo(carrier);
}

} // namespace

ThreadInfo* getNativeThreadInfo() {
    ThreadInfo* const info = ourNativeThreadInfo;
    return info != nullptr && info->registry == ThreadInfo::ourRegistry ? info : nullptr;
}

ThreadInfo* getCarrierThreadInfo() {
    ThreadInfo* const known = getNativeThreadInfo();
    if (known == nullptr && getJVMTIPhase() == JVMTI_PHASE_LIVE) {
        ourNativeThreadInfo = askForCarrier();
        return ourNativeThreadInfo;
    }
    return known;
}

void setNativeThreadInfo(ThreadInfo* info) {
    ourNativeThreadInfo = info;
}
